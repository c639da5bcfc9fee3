#pragma once

#include "kolvex/IFrame.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: the source of frame objects for all channels of one driver.
///
/// Called from the channels' receive threads, several at a time; valid until IIPCaptureDriver::Close
/// returns. An exception is caught and counts as no frame.
class IFrameAllocator {
 public:
  virtual ~IFrameAllocator() = default;  ///< slot 0
  virtual void Slot1() {}                ///< slot 1, not called
  /// A frame with a data area of @p size bytes, or null when none is available. @p owner is
  /// "CKolvexIPCapture" for MPEG-4 frames and an empty text for JPEG frames; read it during the call.
  virtual IFrame* AllocateFrame(u32 fourCC, u32 size, const char* owner) = 0;  ///< slot 2
  virtual void Slot3() {}                                                      ///< slot 3, not called
  virtual void Slot4() {}                                                      ///< slot 4, not called
  virtual void Slot5() {}                                                      ///< slot 5, not called
  /// Takes back a frame, once for each one that AllocateFrame gave, after OnFrame has returned.
  virtual void ReleaseFrame(IFrame* frame) = 0;  ///< slot 6
};

}  // namespace sarnevo::ipcapture
