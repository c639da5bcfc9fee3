#pragma once

#include "kolvex/IFrame.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: receives the frames of one channel.
///
/// Valid from StartCapture until the matching StopCapture (or Close) has returned. An exception is
/// caught; from OnFrame it counts as false.
class IFrameSink {
 public:
  virtual ~IFrameSink() = default;  ///< slot 0
  /// A frame, on the channel's receive thread: while this runs no packet of the channel is taken from the network.
  /// ReleaseFrame follows, whatever the result. False on an MPEG-4 frame makes the channel wait for the next key
  /// frame; on a JPEG frame the result is ignored.
  virtual bool OnFrame(IFrame* frame) = 0;  ///< slot 1
  virtual void Slot2() {}                   ///< slot 2, not called
  /// No frame has come for the channel's receive time-out (5 s, or 10 s while a stream starts). Repeats at that pace
  /// for as long as none comes, but not for a camera that answers every start of the stream and refuses to play. Comes
  /// once right after StartCapture. On the channel's worker thread.
  virtual void OnNoData() = 0;  ///< slot 3
};

}  // namespace sarnevo::ipcapture
