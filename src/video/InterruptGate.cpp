#include "video/InterruptGate.h"

#include <mutex>

#include "platform/Clock.h"

namespace sarnevo {

void InterruptGate::Watch(void* object, Action interrupt) noexcept {
  const std::lock_guard guard(lock_);
  watched_ = object;
  interrupt_ = interrupt;
  if (watched_ != nullptr && interrupted_.Wait(platform::Milliseconds{0}) == platform::WaitResult::Signalled) {
    interrupt_(watched_);
  }
}

void InterruptGate::Pause(platform::Milliseconds duration) noexcept {
  if (interrupted_.Wait(duration) == platform::WaitResult::Failed) {
    platform::Sleep(
        duration);  // there was no memory for the event; without a pause the camera would be flooded
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
