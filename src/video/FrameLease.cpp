#include "video/FrameLease.h"

#include "threads/HostCall.h"

namespace sarnevo {

namespace {

// Where the calling thread gives a frame back at the moment. ReleaseFrame itself may close the driver.
thread_local const FrameReturns* own = nullptr;

}  // namespace

void FrameReturns::GiveBack(ipcapture::IFrameAllocator& allocator, ipcapture::IFrame& frame) noexcept {
  {
    const std::lock_guard guard(lock_);
    if (closed_) {
      return;
    }
    ++returning_;
  }
  own = this;
  CallHost([&] { allocator.ReleaseFrame(&frame); }, /*evenIfLetGo=*/true);
  own = nullptr;
  const std::lock_guard guard(lock_);
  --returning_;
  returned_.notify_all();
}

void FrameReturns::Close() noexcept {
  std::unique_lock guard(lock_);
  closed_ = true;
  returned_.wait(guard, [this] { return returning_ == (own == this ? 1 : 0); });
}

FrameLease::~FrameLease() {
  if (frame_ == nullptr) {
    return;
  }
  if (own_thread::IsLetGo()) {
    returns_.GiveBack(allocator_, *frame_);
  } else {
    CallHost([this] { allocator_.ReleaseFrame(frame_); });
  }
}

bool FrameLease::Take(u32 fourCC, u32 size, const char* owner) noexcept {
  return CallHost([&] { frame_ = allocator_.AllocateFrame(fourCC, size, owner); }) && frame_ != nullptr;
}

}  // namespace sarnevo
