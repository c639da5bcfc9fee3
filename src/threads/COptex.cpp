#include "threads/COptex.h"

#include "platform/HostProcess.h"
#include "platform/Thread.h"

namespace sarnevo {

namespace {

bool IsSingleProcessor() noexcept {
  static const bool single = platform::ProcessorCount() == 1;
  return single;
}

}  // namespace

COptex::COptex(u32 spinCount, const char* /*name*/) : block_(std::make_unique<Block>()) { SetSpinCount(spinCount); }

COptex::~COptex() = default;

void COptex::SetSpinCount(u32 spinCount) noexcept {
  if (!IsSingleProcessor()) {
    block_->spinCount.store(spinCount, std::memory_order_relaxed);
  }
}

bool COptex::TryEnter() noexcept {
  const u32 self = platform::CurrentThreadId();
  u32 spin = block_->spinCount.load(std::memory_order_relaxed);
  for (;;) {
    i32 free = 0;
    if (block_->lockCount.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      block_->ownerThread.store(self, std::memory_order_relaxed);
      block_->recursion = 1;
      return true;
    }
    if (block_->ownerThread.load(std::memory_order_relaxed) == self) {
      block_->lockCount.fetch_add(1, std::memory_order_relaxed);
      ++block_->recursion;
      return true;
    }
    if (spin == 0) {
      return false;
    }
    --spin;
  }
}

void COptex::Enter() noexcept {
  if (TryEnter()) {
    return;
  }
  // From here on this thread counts as a waiter, so that no newcomer gets in front of it. TryEnter has
  // ruled out that it is the owner.
  if (block_->lockCount.fetch_add(1, std::memory_order_acquire) != 0) {
    event_.Wait();
  }
  block_->ownerThread.store(platform::CurrentThreadId(), std::memory_order_relaxed);
  block_->recursion = 1;
}

void COptex::Leave() noexcept {
  if (--block_->recursion >= 1) {
    block_->lockCount.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  block_->ownerThread.store(0, std::memory_order_relaxed);
  if (block_->lockCount.fetch_sub(1, std::memory_order_release) > 1) {
    event_.Set();
  }
}

}  // namespace sarnevo
