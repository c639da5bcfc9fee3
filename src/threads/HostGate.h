#pragma once

#include <atomic>
#include <utility>

#include "threads/HostCall.h"

namespace sarnevo {

/// The door to objects of the host that go away at a stop while a thread of ours may still be working for
/// them. Once closed it lets no call through.
///
/// A thread that is just stepping through when the gate closes still makes its call; so whoever closes the
/// gate gives the thread a moment before the host may free its objects.
class HostGate {
 public:
  /// Any thread.
  void Close() noexcept { closed_.store(true, std::memory_order_release); }

  /// Makes one call to the host as CallHost does, or none.
  template <typename Call>
  void Pass(Call&& call) const noexcept {
    // Asked for inside, where the thread counts as being with the host.
    CallHost([&] {
      if (!closed_.load(std::memory_order_acquire)) {
        std::forward<Call>(call)();
      }
    });
  }

 private:
  std::atomic<bool> closed_{false};
};

}  // namespace sarnevo
