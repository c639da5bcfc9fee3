#pragma once

#include <cstdint>

#include "platform/Time.h"

/// Clocks. Any thread may call.
namespace sarnevo::platform {

/// UTC in units of 100 ns since 1 January 1601. Follows the system's clock, so that it may jump.
std::uint64_t UtcFileTime() noexcept;

/// UTC in whole seconds since 1 January 1970.
std::uint32_t UtcSeconds() noexcept;

/// Milliseconds of a clock that never jumps; only differences mean something.
std::uint64_t MonotonicMilliseconds() noexcept;

/// Blocks the calling thread for @p duration; 0 only yields.
void Sleep(Milliseconds duration) noexcept;

}  // namespace sarnevo::platform
