#include "platform/Clock.h"

#include <cerrno>
#include <ctime>

#include <sched.h>

namespace sarnevo::platform {

namespace {

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

std::uint32_t UtcSeconds() noexcept { return static_cast<std::uint32_t>(Now(CLOCK_REALTIME).tv_sec); }

std::uint64_t MonotonicMilliseconds() noexcept {
  const timespec now = Now(CLOCK_MONOTONIC);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

void Sleep(Milliseconds duration) noexcept {
  if (duration.count() <= 0) {
    sched_yield();
    return;
  }
  timespec left{};
  left.tv_sec = static_cast<time_t>(duration.count() / 1000);
  left.tv_nsec = static_cast<long>(duration.count() % 1000) * 1'000'000;
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}

}  // namespace sarnevo::platform
