#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kolvex_bench {

/// System calls by name, or by number where the name isn't one of the expected.
using CallsByName = std::map<std::string, double>;

/// Counts every system call of every thread of these processes while @p during runs, by tracing them (ptrace(2)),
/// which slows them down a lot.
/// @return nothing when the system forbids tracing
CallsByName TraceSystemCalls(const std::vector<pid_t>& processes, const std::function<void()>& during);

}  // namespace kolvex_bench
