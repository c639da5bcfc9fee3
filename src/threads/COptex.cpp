#include "threads/COptex.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <new>
#include <thread>

#include "platform/SharedMemory.h"
#include "platform/Thread.h"

namespace sarnevo {

namespace {

constexpr std::size_t kFullNameBytes = 100;  // with the terminator
constexpr char kEventPrefix[] = "Optex_Event_";
constexpr char kBlockPrefix[] = "Optex_MMF_";
// Both full names keep the same part of a long name: else two locks could share an event but no block.
constexpr int kNameBytes = static_cast<int>(kFullNameBytes - sizeof(kEventPrefix));

using FullName = std::array<char, kFullNameBytes>;

FullName MakeFullName(const char* prefix, const char* name) noexcept {
  FullName out{};
  std::snprintf(out.data(), out.size(), "%s%.*s", prefix, kNameBytes, name);
  return out;
}

bool IsSingleProcessor() noexcept {
  static const bool single = std::thread::hardware_concurrency() == 1;
  return single;
}

}  // namespace

struct COptex::Shared {
  explicit Shared(const char* name) noexcept
      : event(MakeFullName(kEventPrefix, name).data(), sizeof(platform::EventWord)),
        block(MakeFullName(kBlockPrefix, name).data(), sizeof(Block)) {}

  const platform::SharedMemory event;
  const platform::SharedMemory block;
};

COptex::COptex(u32 spinCount, const char* name) noexcept : COptex(spinCount, name, IsSingleProcessor()) {}

COptex::COptex(u32 spinCount, const char* name, bool singleProcessor) noexcept
    : singleProcessor_(singleProcessor) {
  if (name != nullptr) {
    shared_.reset(new (std::nothrow) Shared(name));
    if (shared_ && shared_->event.Data() != nullptr && shared_->block.Data() != nullptr) {
      // Fresh memory is zero, which is a free lock, so that no user initialises it before the others.
      event_ = static_cast<platform::EventWord*>(shared_->event.Data());
      block_ = static_cast<Block*>(shared_->block.Data());
    } else {
      shared_.reset();
    }
  }
  SetSpinCount(spinCount);
}

COptex::~COptex() = default;

void COptex::SetSpinCount(u32 spinCount) noexcept {
  if (!singleProcessor_) {
    block_->spinCount.store(spinCount, std::memory_order_relaxed);
  }
}

u32 COptex::SpinCount() const noexcept { return block_->spinCount.load(std::memory_order_relaxed); }

void COptex::Own(u32 self) noexcept {
  block_->ownerThread.store(self, std::memory_order_relaxed);
  block_->recursion = 1;
}

bool COptex::TryOnce(u32 self) noexcept {
  i32 free = 0;
  if (block_->lockCount.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                                std::memory_order_relaxed)) {
    Own(self);
    return true;
  }
  if (block_->ownerThread.load(std::memory_order_relaxed) == self) {
    block_->lockCount.fetch_add(1, std::memory_order_relaxed);
    ++block_->recursion;
    return true;
  }
  return false;
}

bool COptex::TryEnter() noexcept {
  const u32 self = platform::CurrentThreadId();
  // Without a pause in between: what it waits for is a few instructions of another processor away.
  for (u32 spin = SpinCount(); !TryOnce(self); --spin) {
    if (spin == 0) {
      return false;
    }
  }
  return true;
}

void COptex::Enter() noexcept {
  if (TryEnter()) {
    return;
  }
  // From here on this thread counts as a waiter, so that no newcomer overtakes it. TryEnter has
  // ruled out that it is the owner.
  if (block_->lockCount.fetch_add(1, std::memory_order_acquire) != 0) {
    event_->Wait();
  }
  Own(platform::CurrentThreadId());
}

void COptex::Leave() noexcept {
  if (--block_->recursion >= 1) {
    block_->lockCount.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  block_->ownerThread.store(0, std::memory_order_relaxed);
  if (block_->lockCount.fetch_sub(1, std::memory_order_release) > 1) {
    event_->Set();
  }
}

}  // namespace sarnevo
