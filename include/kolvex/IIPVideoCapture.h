#pragma once

#include "kolvex/IFrameSink.h"
#include "kolvex/IIPVideoParams.h"

namespace sarnevo::ipcapture {

/// Video of one camera: up to 16 channels, each with a worker of its own. Taken from
/// IIPCaptureDriver::GetVideoCapture; belongs to the driver and is void from Close on.
///
/// Any thread may call; calls take turns. No operation reports why it failed.
class IIPVideoCapture {
 public:
  virtual ~IIPVideoCapture() = default;  ///< slot 0
  /// The device's number of channels, as the host gave it at Open.
  virtual u32 GetChannelCount() = 0;  ///< slot 1
  /// Starts a channel. True says that the channel runs, not that the camera answers. False for a channel of 16 or
  /// more, for one whose stream has started, when @p params or one of its objects is null, and when there is no memory
  /// or no thread. When an object of @p params is missing, or a thread, the channel keeps its place and its sink all the
  /// same, until StopCapture. Returns at once, but for a channel that runs and has no stream yet: that one is stopped
  /// first, as by StopCapture.
  /// @param channel  from 0
  /// @param sink     not owned; lives until StopCapture or Close has returned; null is never called
  /// @param params   read only during the call
  virtual bool StartCapture(u32 channel, IFrameSink* sink, IIPVideoParams* params) = 0;  ///< slot 2
  /// Ends a channel; when it returns nothing of it runs and its sink isn't called any more. Usually takes 1 s while
  /// streaming and 3 s in a pause, at the most twice the channel's receive time-out (10 or 20 s) and the farewell to
  /// the camera (10 s). The calls that hand over a frame, from AllocateFrame to ReleaseFrame, are waited for without a
  /// limit. From inside a callback of the channel it doesn't wait for that callback. False when the channel doesn't run.
  virtual bool StopCapture(u32 channel) = 0;  ///< slot 3
  /// Restarts a running channel with another size and frame interval. Takes as long as StopCapture. False when the
  /// channel doesn't run or there is no thread.
  /// @param channel        from 0
  /// @param resolution     pixels; read only during the call
  /// @param frameInterval  milliseconds
  virtual bool ChangeFormat(u32 channel, IIPResolution* resolution, u32 frameInterval) = 0;  ///< slot 4
  /// Without effect.
  virtual u32 Reserved5() = 0;  ///< slot 5, always 0
  /// Whether a channel runs: false when it doesn't. There is no more to learn, and any pointer may be null. Waits for a
  /// StopCapture or ChangeFormat of the same driver on another thread.
  /// @param channel   from 0
  /// @param status    gets 0; left as it is when the channel doesn't run
  /// @param extra     gets 0
  /// @param text      gets an empty text
  /// @param textSize  bytes
  virtual bool GetChannelStatus(u32 channel, u32* status, u32* extra, char* text,
                                u32 textSize) = 0;  ///< slot 6
  /// Without effect.
  virtual bool Reserved7(u32 a, u32 b, u32 c) = 0;  ///< slot 7, always false
  /// Without effect.
  virtual bool Reserved8(u32 a, u32 b, u32 c) = 0;  ///< slot 8, always false
};

/// The newer form; the same object.
class IIPVideoCaptureEx : public IIPVideoCapture {
 public:
  /// Without effect.
  virtual bool Reserved9(u32 a) = 0;  ///< slot 9, always false
  /// Without effect.
  virtual bool Reserved10(u32 a) = 0;  ///< slot 10, always false
};

}  // namespace sarnevo::ipcapture
