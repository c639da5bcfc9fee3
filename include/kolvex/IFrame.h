#pragma once

#include "kolvex/Types.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: one compressed frame, taken from IFrameAllocator and filled by the library.
///
/// Belongs to the host; the library uses it from AllocateFrame to ReleaseFrame, on the channel's receive thread. Only the
/// named operations are called, in the order that docs/host-guide.md shows; the numbered ones keep the slots in place.
/// A host overrides what is pure here and may leave the rest. What it throws is dropped.
class IFrame {
 public:
  virtual ~IFrame() = default;  ///< slot 0
  virtual void Slot1() {}       ///< slot 1, not called
  /// The data area, of at least as many bytes as AllocateFrame was asked for. Null: the frame is given back unused.
  virtual u8* GetData() = 0;  ///< slot 2
  virtual void Slot3() {}     ///< slot 3, not called
  /// Bytes of the data area in use.
  virtual void SetDataSize(u32 size) = 0;  ///< slot 4
  /// The frame is complete; called last, just before IFrameSink::OnFrame.
  virtual void Finish() = 0;  ///< slot 5
  virtual void Slot6() {}     ///< slot 6, not called
  virtual void Slot7() {}     ///< slot 7, not called
  virtual void Slot8() {}     ///< slot 8, not called
  virtual void Slot9() {}     ///< slot 9, not called
  /// One of the FrameFourCC values.
  virtual void SetFourCC(u32 fourCC) = 0;  ///< slot 10
  virtual void Slot11() {}                 ///< slot 11, not called
  /// Pixels.
  virtual void SetHeight(u32 height) = 0;  ///< slot 12
  virtual void Slot13() {}                 ///< slot 13, not called
  /// Pixels.
  virtual void SetWidth(u32 width) = 0;  ///< slot 14
  virtual void Slot15() {}               ///< slot 15, not called
  /// 4 for large pictures, 2 for small ones.
  virtual void SetSizeClass(u32 sizeClass) = 0;  ///< slot 16
};

}  // namespace sarnevo::ipcapture
