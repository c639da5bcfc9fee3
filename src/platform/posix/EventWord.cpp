#include "platform/EventWord.h"

#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/Clock.h"

namespace sarnevo::platform {

static_assert(sizeof(EventWord) == sizeof(std::uint32_t) && std::atomic<std::uint32_t>::is_always_lock_free);

void EventWord::Set() noexcept {
  word_.store(1, std::memory_order_release);
  syscall(SYS_futex, &word_, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

bool EventWord::Wait(Nanoseconds end) noexcept {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(end);
  const timespec until{static_cast<time_t>(seconds.count()), static_cast<long>((end - seconds).count())};
  while (word_.exchange(0, std::memory_order_acquire) == 0) {
    if (MonotonicTime() >= end) {
      return false;
    }
    // Sleeps while the word is 0, see futex(2); may also return for nothing.
    syscall(SYS_futex, &word_, FUTEX_WAIT_BITSET, 0, &until, nullptr, FUTEX_BITSET_MATCH_ANY);
  }
  return true;
}

}  // namespace sarnevo::platform
