#pragma once

#include <cstdint>

/// Counts what this process and the libraries in it ask of the allocator and of the system's sockets. The
/// functions stand in the program and so in front of the system's own.
namespace kolvex_bench {

struct Calls {
  std::uint64_t allocations = 0;  ///< malloc, calloc, realloc, and so operator new
  std::uint64_t receives = 0;     ///< recv, recvfrom, recvmsg, recvmmsg
  std::uint64_t polls = 0;        ///< poll, ppoll, select, epoll_wait
};

/// Off at first, so that a timed run doesn't pay for it.
void CountCalls(bool on);
Calls CallsSoFar();

}  // namespace kolvex_bench
