#pragma once

#include <condition_variable>
#include <mutex>

#include "kolvex/IFrameAllocator.h"

namespace sarnevo {

/// Knows whether the allocator of a driver is still there, for threads that nobody waits for any more. A callback may end
/// its own channel while its thread has a frame; the frame is given back when the callback returns, unless the driver was
/// closed before. One per driver, shared by all who may hold a frame. Any thread may call.
class FrameReturns {
 public:
  /// Gives @p frame back on a thread that was let go; after Close it does nothing, and the frame stays with the host.
  void GiveBack(ipcapture::IFrameAllocator& allocator, ipcapture::IFrame& frame) noexcept;
  /// The allocator becomes void. Waits until no frame is on its way back, but for one of the calling thread.
  void Close() noexcept;

 private:
  std::mutex lock_;
  std::condition_variable returned_;
  // Under lock_.
  bool closed_ = false;
  int returning_ = 0;  // frames in ReleaseFrame
};

/// A frame of the host's between AllocateFrame and ReleaseFrame, on the stack of the thread that delivers it. It goes
/// back exactly once, at the end of the scope.
class FrameLease {
 public:
  FrameLease(ipcapture::IFrameAllocator& allocator, FrameReturns& returns) noexcept
      : allocator_(allocator), returns_(returns) {}
  ~FrameLease();
  FrameLease(const FrameLease&) = delete;
  FrameLease& operator=(const FrameLease&) = delete;

  /// False when the host has none, or the thread was let go meanwhile.
  bool Take(u32 fourCC, u32 size, const char* owner) noexcept;
  /// Once taken.
  ipcapture::IFrame& Frame() const noexcept { return *frame_; }

 private:
  ipcapture::IFrameAllocator& allocator_;
  FrameReturns& returns_;
  ipcapture::IFrame* frame_ = nullptr;
};

}  // namespace sarnevo
