#pragma once

#include <map>
#include <optional>
#include <string>

#include "kolvex/Types.h"

namespace kolvex_host {

/// Datagrams that the kernel threw away at this process's UDP sockets, because their receive buffers were full:
/// the program, or the machine, was too slow for what the cameras sent. From /proc, since the library's interfaces
/// don't show which sockets are a stream's; so it is one number for all streams.
///
/// A socket's own count goes with the socket, and streams that are set up again have new ones. So look now and
/// then: what a socket lost since the last look before its end isn't known. One thread at a time.
class KernelDrops {
 public:
  void Look();
  /// Of all sockets so far. Nothing where the system doesn't say.
  std::optional<sarnevo::u64> Total() const { return total_; }

 private:
  std::map<std::string, sarnevo::u64> drops_;  // of each open socket at the last look, by inode
  std::optional<sarnevo::u64> total_;
};

}  // namespace kolvex_host
