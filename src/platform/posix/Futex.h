#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace sarnevo::platform::posix {

/// A word that threads sleep on; see futex(2). std::atomic's own wait knows no time-out and no other process.
using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == sizeof(std::uint32_t) && FutexWord::is_always_lock_free);

/// Who shares a word.
enum class FutexScope : int {
  Process = FUTEX_PRIVATE_FLAG,
  Machine = 0,  ///< any process that has mapped it; costs more
};

/// Sleeps while @p word is @p value, until it is woken or @p deadline, null for none, has passed. May also
/// return for nothing, so that the caller looks at the word, and at the clock, again.
inline void FutexWait(FutexWord& word, std::uint32_t value, FutexScope scope,
                      const std::chrono::steady_clock::time_point* deadline = nullptr) noexcept {
  timespec until{};
  if (deadline != nullptr) {
    // The steady clock is CLOCK_MONOTONIC, which this operation measures by.
    const auto since = deadline->time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    until.tv_sec = static_cast<time_t>(seconds.count());
    until.tv_nsec = static_cast<long>(std::chrono::nanoseconds(since - seconds).count());
  }
  syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | static_cast<int>(scope), value,
          deadline != nullptr ? &until : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
}

/// Wakes one thread that sleeps on @p word.
inline void FutexWakeOne(FutexWord& word, FutexScope scope) noexcept {
  syscall(SYS_futex, &word, FUTEX_WAKE | static_cast<int>(scope), 1, nullptr, nullptr, 0);
}

}  // namespace sarnevo::platform::posix
