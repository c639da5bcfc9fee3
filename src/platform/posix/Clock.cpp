#include "platform/Clock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <sched.h>
#include <sys/prctl.h>

namespace sarnevo::platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
// Seconds from 1 January 1601 to 1 January 1970.
constexpr std::uint64_t kEpochShift = 11'644'473'600;

timespec Now(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

}  // namespace

std::uint64_t UtcFileTime() noexcept {
  const timespec now = Now(CLOCK_REALTIME);
  return (static_cast<std::uint64_t>(now.tv_sec) + kEpochShift) * kUnitsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec) / 100;
}

Nanoseconds MonotonicTime() noexcept {
  const timespec now = Now(CLOCK_MONOTONIC);
  return Nanoseconds{now.tv_sec * kNanosecondsPerSecond + now.tv_nsec};
}

Nanoseconds TimeAfter(Milliseconds timeout) noexcept {
  return MonotonicTime() + std::clamp<Milliseconds>(timeout, Milliseconds{0}, std::chrono::hours{24 * 365});
}

void Sleep(Nanoseconds duration) noexcept {
  if (duration.count() <= 0) {
    sched_yield();
    return;
  }
  SleepUntil(MonotonicTime() + duration);
}

void SleepUntil(Nanoseconds time) noexcept {
  timespec end{};
  end.tv_sec = static_cast<time_t>(time.count() / kNanosecondsPerSecond);
  end.tv_nsec = static_cast<long>(time.count() % kNanosecondsPerSecond);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

void SleepPrecisely() noexcept {
  constexpr unsigned long kSlackNanoseconds = 1000;
  static_cast<void>(prctl(PR_SET_TIMERSLACK, kSlackNanoseconds, 0UL, 0UL, 0UL));
}

}  // namespace sarnevo::platform
