#pragma once

#include <cstdint>

#include "platform/Time.h"

/// Clocks. Any thread may call.
namespace sarnevo::platform {

/// UTC in units of 100 ns since 1 January 1601. Follows the system's clock, so that it may jump.
std::uint64_t UtcFileTime() noexcept;

/// A clock that never jumps; only differences mean something.
Nanoseconds MonotonicTime() noexcept;
/// The time when @p timeout is over. Takes any time-out: one that is too long for the clock becomes a year.
Nanoseconds TimeAfter(Milliseconds timeout) noexcept;

/// Blocks the calling thread for @p duration; 0 only yields.
void Sleep(Nanoseconds duration) noexcept;
/// Blocks the calling thread until MonotonicTime has reached @p time.
void SleepUntil(Nanoseconds time) noexcept;
/// From now on the calling thread's sleeps end within microseconds of their time. Without this the system may end them
/// some 50 us late, so as to wake up once for several. A wish that not every system grants.
void SleepPrecisely() noexcept;

}  // namespace sarnevo::platform
