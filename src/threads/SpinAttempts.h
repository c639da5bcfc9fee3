#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Calls @p once until it gives true, at most @p spinCount + 1 times and without a pause in between: what
/// it waits for is a few instructions of another processor away. Gives what the last call gave.
template <typename Once>
bool SpinAttempts(u32 spinCount, Once once) noexcept {
  for (u32 spin = spinCount;; --spin) {
    if (once()) {
      return true;
    }
    if (spin == 0) {
      return false;
    }
  }
}

}  // namespace sarnevo
