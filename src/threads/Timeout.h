#pragma once

#include "kolvex/Types.h"
#include "platform/Time.h"

namespace sarnevo {

/// All bits set: a wait without limit.
inline constexpr u32 kNoTimeout = 0xFFFF'FFFFu;

/// A time-out as the thread classes take it, in milliseconds, in the form of the platform layer.
constexpr platform::Milliseconds TimeoutOf(u32 milliseconds) noexcept {
  return milliseconds == kNoTimeout ? platform::Milliseconds::max() : platform::Milliseconds{milliseconds};
}

}  // namespace sarnevo
