#include "video/InterruptGate.h"

#include <mutex>

namespace sarnevo {

void InterruptGate::Watch(void* object, Action interrupt) noexcept {
  const std::lock_guard guard(lock_);
  watched_ = object;
  interrupt_ = interrupt;
  if (watched_ != nullptr && interrupted_.Wait(platform::Milliseconds{0}) == platform::WaitResult::Signalled) {
    interrupt_(watched_);
  }
}

void InterruptGate::Interrupt() noexcept {
  const std::lock_guard guard(lock_);
  interrupted_.Set();
  if (watched_ != nullptr) {
    interrupt_(watched_);
  }
}

}  // namespace sarnevo
