#include "platform/SharedEvent.h"

#include "platform/posix/Futex.h"

namespace sarnevo::platform {

namespace {

// 1 while the event is set. It starts as the zero of fresh shared memory, so that no user has to initialise
// it before the others.
posix::FutexWord& WordOf(const SharedMemory& memory) noexcept {
  return *static_cast<posix::FutexWord*>(memory.Data());
}

}  // namespace

SharedEvent::SharedEvent(const char* name) noexcept : memory_(name, sizeof(posix::FutexWord)) {}

void SharedEvent::Set() noexcept {
  if (IsValid()) {
    WordOf(memory_).store(1, std::memory_order_release);
    posix::FutexWakeOne(WordOf(memory_), posix::FutexScope::Machine);
  }
}

void SharedEvent::Wait() noexcept {
  if (IsValid()) {
    // The wait returns at once when the word has changed in between, and may wake for nothing.
    while (WordOf(memory_).exchange(0, std::memory_order_acquire) == 0) {
      posix::FutexWait(WordOf(memory_), 0, posix::FutexScope::Machine);
    }
  }
}

}  // namespace sarnevo::platform
