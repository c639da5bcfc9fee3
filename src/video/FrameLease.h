#pragma once

#include "kolvex/IFrameAllocator.h"

namespace sarnevo {

/// A frame of the host's between AllocateFrame and ReleaseFrame, on the stack of the thread that delivers it.
///
/// Each frame goes back exactly once, also when a callback on the way ends its own channel: the thread is
/// then given up (threads/HostCall.h) and owes the host nothing but the frame, although every object of the
/// channel is gone. Only the driver's Close ends that debt, since the allocator is void behind it.
///
/// Owns nothing that a destructor would have to free, so that the thread may be left with it.
class FrameLease {
 public:
  /// @param owner  stands for the driver; only compared.
  FrameLease(ipcapture::IFrameAllocator* allocator, const void* owner) noexcept
      : allocator_(allocator), owner_(owner) {}
  FrameLease(const FrameLease&) = delete;
  FrameLease& operator=(const FrameLease&) = delete;

  /// The calling thread begins to deliver with this lease.
  void Begin() noexcept;
  /// Takes a frame from the allocator, inside a call to the host.
  void Take(u32 fourCC, u32 size, const char* text) { frame_ = allocator_->AllocateFrame(fourCC, size, text); }
  ipcapture::IFrame* Frame() const noexcept { return frame_; }
  /// Gives the frame back, if there is one, and ends the delivery.
  void End() noexcept;
  /// The same on a thread that was given up meanwhile.
  void EndGivenUp() noexcept;

  /// The calling thread is given up inside the callback that it stands in.
  static void KeepForGivenUpThread() noexcept;
  /// The allocator of @p owner becomes void: its frames that given-up threads still have stay with the host.
  /// Waits until none of them is on its way back.
  static void DropAllOf(const void* owner) noexcept;

 private:
  friend class GivenUpLeases;

  ipcapture::IFrameAllocator* const allocator_;
  const void* const owner_;
  ipcapture::IFrame* frame_ = nullptr;
  // Under the lock of GivenUpLeases.
  FrameLease* next_ = nullptr;
};

}  // namespace sarnevo
