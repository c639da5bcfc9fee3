#pragma once

#include <atomic>

#include "kolvex/Types.h"

namespace sarnevo {

/// Thins out a message that keeps coming, so that a dead camera doesn't flood the host's log: of the first 14
/// all pass, then every 16th, from the 255th on every 256th, and from the 4095th on every 4096th, for good.
/// Any thread.
class RepeatCounter {
 public:
  /// Counts one occurrence and says whether it is to be reported.
  bool ShouldReport() noexcept {
    u32 count = count_.load(std::memory_order_relaxed);
    u32 next = 0;
    do {
      next = count + 1 == kWrap ? kWrapTo : count + 1;
    } while (!count_.compare_exchange_weak(count, next, std::memory_order_relaxed));
    if (next < 15) {
      return true;
    }
    const u32 step = next < 255 ? 16 : next < 4095 ? 256 : 4096;
    return next % step == 0;
  }

 private:
  // The count never ends: in place of 65535 it goes on with 4095, one before a multiple of 4096.
  static constexpr u32 kWrap = 65535;
  static constexpr u32 kWrapTo = 4095;

  std::atomic<u32> count_{0};
};

}  // namespace sarnevo
