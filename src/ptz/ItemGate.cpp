#include "ptz/ItemGate.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/Clock.h"

namespace sarnevo {

ItemGate::Pass::Pass(ItemGate& gate, std::function<void()> interrupt)
    : gate_(gate), passed_(gate.Enter(std::move(interrupt))) {}

ItemGate::Pass::~Pass() {
  if (passed_) {
    gate_.Leave();
  }
}

void ItemGate::Open() noexcept {
  const std::lock_guard guard(lock_);
  open_ = true;
}

void ItemGate::Shut() noexcept {
  const std::lock_guard guard(lock_);
  if (open_) {
    open_ = false;
    shutAt_ = platform::MonotonicMilliseconds();
  }
}

void ItemGate::Close(platform::Milliseconds patience) noexcept {
  Shut();
  platform::Milliseconds remaining{0};
  {
    const std::lock_guard guard(lock_);
    if (worker_ == platform::CurrentThreadId()) {
      return;
    }
    const platform::Milliseconds waited(platform::MonotonicMilliseconds() - shutAt_);
    remaining = std::max(patience - waited, platform::Milliseconds{0});
  }
  if (left_.Wait(remaining) == platform::WaitResult::Signalled) {
    return;
  }
  const std::lock_guard guard(lock_);  // keeps the work from leaving while it is interrupted
  if (interrupt_) {
    interrupt_();
  }
}

bool ItemGate::Enter(std::function<void()> interrupt) {
  const std::lock_guard guard(lock_);
  if (!open_) {
    return false;
  }
  worker_ = platform::CurrentThreadId();
  interrupt_ = std::move(interrupt);
  left_.Reset();
  return true;
}

void ItemGate::Leave() noexcept {
  const std::lock_guard guard(lock_);
  worker_ = 0;
  interrupt_ = nullptr;
  left_.Set();
}

}  // namespace sarnevo
