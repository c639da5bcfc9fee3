#include "ptz/ItemGate.h"

#include <mutex>
#include <utility>

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

void ItemGate::Close(platform::Milliseconds patience) noexcept {
  {
    const std::lock_guard guard(lock_);
    open_ = false;
    if (worker_ == platform::CurrentThreadId()) {
      return;
    }
  }
  if (left_.Wait(patience) == platform::WaitResult::Signalled) {
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
