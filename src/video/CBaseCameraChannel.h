#pragma once

#include <atomic>
#include <memory>

#include "device/ChannelTiming.h"
#include "kolvex/IFrameSink.h"
#include "protocols/IRTPReceiverUser.h"
#include "threads/COptex.h"
#include "threads/StopClaim.h"
#include "threads/StoppableThread.h"
#include "video/Activity.h"
#include "video/FrameDelivery.h"
#include "video/StreamFormat.h"

namespace sarnevo {

class CameraStreamer;
class Device;

/// One video stream from the camera.
///
/// A worker thread configures the camera, starts the stream and keeps it alive: as long as the channel runs
/// it tries again and again, with fixed pauses, and never gives up. The stream's packets come in on the UDP
/// port's receive thread and become frames there. The host hears of trouble only through
/// IFrameSink::OnNoData and through the frames stopping.
///
///     streaming  configured   the worker
///         no         no       configures the camera, pauses
///         no         yes      starts the stream; after a failure cleans up and pauses
///         yes        yes      looks after the stream once a second; restarts it after a time-out
///
/// The host may end the channel from inside any callback. The thread of that callback is then let go: the rest of the
/// channel ends in order, and the thread ends soon after the host has returned. Both threads own the channel, which
/// lives in a std::shared_ptr.
///
/// Locks: Start, Stop and ChangeFormat come from one thread at a time (the capture object's lock).
class CBaseCameraChannel : public IRTPReceiverUser, public std::enable_shared_from_this<CBaseCameraChannel> {
 public:
  /// @param driver         outlives the channel. Without one nothing streams.
  /// @param sink           not owned; null gets no calls, and every frame counts as refused.
  /// @param returns        of the driver.
  /// @param useObjectPath  the camera is of group 1: RTSP names "/object.sdp", and the JPEG layout is its own.
  CBaseCameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink,
                     std::shared_ptr<FrameReturns> returns, bool useObjectPath);
  /// Stop has run before.
  ~CBaseCameraChannel() override;
  CBaseCameraChannel(const CBaseCameraChannel&) = delete;
  CBaseCameraChannel& operator=(const CBaseCameraChannel&) = delete;

  /// Starts the worker, after the end of an earlier one that is still at work. False when the stream has
  /// started already, when there is no thread, and when the claim on the stop of an earlier worker was refused.
  /// @param frameInterval  milliseconds
  /// @param quality        percentage
  bool Start(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept;
  /// Ends worker and stream; nothing runs any more when it returns. The claim is taken before. Never 0.
  u32 Stop() noexcept;
  /// Stops and starts again with the same quality. False when the channel can't be claimed or started.
  bool ChangeFormat(u32 width, u32 height, u32 frameInterval) noexcept;
  /// A counter that nothing moves; 0.
  u32 GetStatusCounter() noexcept;

  /// On a stop; taken by whoever calls Stop, and dropped by the next Start.
  StopClaim& Claim() noexcept { return claim_; }

  void PacketReceived(CRTPReceiver* receiver, const sockaddr_in* from, const CRTPPacket* packet) override;
  void ReceiveTimeout() override;
  void SocketClosed(CRTPReceiver* receiver) override;

  /// Sends the camera its configuration; on the worker's thread. Non-zero on success, also in configured_; without a
  /// driver 0, and nothing is sent. May throw std::bad_alloc, which counts as a failure.
  virtual u32 ConfigureCamera() = 0;

 protected:
  /// What the camera is to stream.
  const StreamFormat& Format() const noexcept { return format_; }
  Device* Driver() const noexcept { return driver_; }

  // Worker only.
  u32 configured_ = 0;  // the last ConfigureCamera succeeded

 private:
  enum State : u32 { Idle = 1, Streaming = 2 };

  /// The channel's messages are for its makers; hosts never get them.
  static constexpr bool IsDebugEnabled() noexcept { return false; }
  void Report(u32 failures) noexcept;

  bool StartClaimed(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept;
  void StopWorker() noexcept;
  u32 Execute() noexcept;
  void DoPass() noexcept;
  void Configure() noexcept;
  void CheckActivity() noexcept;

  u32 StartStreamer() noexcept;
  std::shared_ptr<CameraStreamer> MakeStreamer() noexcept;
  void StopStreamer() noexcept;

  bool IsGateOpen() const noexcept;
  void SetTimedOut(bool timedOut) noexcept;
  bool IsTimedOut() noexcept;
  platform::Milliseconds ReceiveTimeoutNow() const noexcept;

  // Constant.
  const bool useObjectPath_;
  const u32 channelIndex_;
  ipcapture::IFrameSink* const sink_;
  Device* const driver_;
  const std::shared_ptr<FrameReturns> returns_;
  const ChannelTiming timing_;

  StreamFormat format_;  // written by Start while no worker runs, and by the worker that begins

  COptex statusLock_;
  u32 statusCounter_ = 0;  // under statusLock_

  // Read across threads without a lock: a stale value costs one packet or one pass, so that relaxed order is
  // enough. The data they speak of is handed over by the starts and ends of the threads.
  std::atomic<u32> state_{Idle};                        // by the worker and the stopping thread
  std::atomic<bool> terminate_{false};                  // by the stopping thread
  std::atomic<bool> streaming_{false};                  // by whoever holds streamerLock_
  std::atomic<platform::Milliseconds> receiveTimeout_;  // by the worker and the receive thread

  COptex timedOutLock_;
  bool timedOut_ = false;  // under timedOutLock_
  Activity activity_;

  // Made and let go of under streamerLock_. The receive thread uses streamer_ without it: that thread starts after
  // the one and ends before the other, or does the latter itself. The lock is held across the talk with the camera;
  // what waits for it is a stop, after the worker's end.
  COptex streamerLock_;
  std::shared_ptr<CameraStreamer> streamer_;

  StopClaim claim_;
  StoppableThread worker_;  // the starting and stopping threads'
};

}  // namespace sarnevo
