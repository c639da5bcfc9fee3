#include "platform/SharedEvent.h"

#include <atomic>
#include <cstdint>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace sarnevo::platform {

namespace {

// One word: 1 while the event is set. It starts as the zero of fresh shared memory, so that no user has to
// initialise it in front of the others.
using Word = std::atomic<std::uint32_t>;
static_assert(sizeof(Word) == sizeof(std::uint32_t) && Word::is_always_lock_free);

Word& WordOf(const SharedMemory& memory) noexcept { return *static_cast<Word*>(memory.Data()); }

// std::atomic's own wait serves the threads of one process only.
void Futex(Word& word, int operation, std::uint32_t value) noexcept {
  syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

}  // namespace

SharedEvent::SharedEvent(const char* name) noexcept : memory_(name, sizeof(Word)) {}

void SharedEvent::Set() noexcept {
  if (IsValid()) {
    WordOf(memory_).store(1, std::memory_order_release);
    Futex(WordOf(memory_), FUTEX_WAKE, 1);
  }
}

void SharedEvent::Wait() noexcept {
  if (IsValid()) {
    // The wait returns at once when the word has changed in between, and may wake for nothing.
    while (WordOf(memory_).exchange(0, std::memory_order_acquire) == 0) {
      Futex(WordOf(memory_), FUTEX_WAIT, 0);
    }
  }
}

}  // namespace sarnevo::platform
