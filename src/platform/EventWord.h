#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Time.h"

namespace sarnevo::platform {

/// An auto-reset event that is a word of memory: 0 while it isn't set, as fresh memory is, so that processes which share
/// the memory share the event and none has to make it first. One Set lets exactly one wait through; a second one before
/// that changes nothing. Any thread may use it.
class EventWord {
 public:
  void Set() noexcept;
  /// Waits until the event is set, and spends it. False when @p end, a time of MonotonicTime, came first.
  bool Wait(Nanoseconds end = Nanoseconds::max()) noexcept;

 private:
  std::atomic<std::uint32_t> word_{0};
};

}  // namespace sarnevo::platform
