#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "device/ChannelTiming.h"
#include "kolvex/IFrameSink.h"
#include "platform/Thread.h"
#include "protocols/IRTPReceiverUser.h"
#include "protocols/PortPair.h"
#include "threads/COptex.h"
#include "video/Activity.h"
#include "video/FrameAssembly.h"
#include "video/InterruptGate.h"
#include "video/StreamFormat.h"

namespace sarnevo {

class Device;
class CRTCPReporter;
class CRTPReceiver;
class CRTSPClient;

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
/// The host may end the channel from inside any callback. Then the thread that stands in that callback is
/// given up: the rest of the channel ends in order, and the thread ends as soon as the host returns, without
/// another look at the channel. So nothing with a destructor stands on those two threads' stacks around a
/// call to the host, and no lock is held there.
///
/// Locks: Start, Stop and ChangeFormat come from one thread at a time (the capture object's lock).
class CBaseCameraChannel : public IRTPReceiverUser {
 public:
  /// @param driver         outlives the channel. Without one nothing streams.
  /// @param sink           not owned; null gets no calls, and every frame counts as refused.
  /// @param useObjectPath  the camera is of group 1: RTSP names "/object.sdp", and the JPEG layout is its own.
  CBaseCameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink, bool useObjectPath);
  /// Stop has run before.
  ~CBaseCameraChannel() override;  // slot 0
  CBaseCameraChannel(const CBaseCameraChannel&) = delete;
  CBaseCameraChannel& operator=(const CBaseCameraChannel&) = delete;

  /// Starts the worker, behind one of an earlier Start if it is still at work. False when the stream has
  /// started already, when there is no thread, and when the claim on the channel was refused.
  /// @param frameInterval  milliseconds
  /// @param quality        percentage
  bool Start(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept;
  /// Ends worker and stream; nothing runs any more when it returns. Takes a ClaimStop before it. Never 0.
  u32 Stop() noexcept;
  /// Stops and starts again with the same quality. False when the channel can't be claimed or started.
  bool ChangeFormat(u32 width, u32 height, u32 frameInterval) noexcept;
  /// A counter that nothing moves; 0.
  u32 GetStatusCounter() noexcept;

  /// Announces that the caller is about to wait for this channel's threads. A thread of another channel,
  /// inside a callback, gets false when its own channel is claimed: two channels whose callbacks end each
  /// other would otherwise wait for each other for ever. Lasts until the next Start.
  bool ClaimStop() noexcept;
  /// The channel whose callback the caller stands in is claimed; false on any other thread.
  static bool IsCallersChannelClaimed() noexcept;
  /// The caller stands in a callback of a channel of @p driver.
  static bool IsCallerOf(const Device* driver) noexcept;

  void PacketReceived(CRTPReceiver* receiver, const sockaddr_in* from,
                      const CRTPPacket* packet) override;  // slot 1
  void ReceiveTimeout() override;                          // slot 2
  void SocketClosed(CRTPReceiver* receiver) override;      // slot 3

  /// Sends the camera its configuration; on the worker's thread. Non-zero on success, also in configured_.
  /// May throw std::bad_alloc, which counts as a failure.
  virtual u32 ConfigureCamera() = 0;  // slot 4

 protected:
  /// What the camera is to stream. The channel has a driver.
  StreamFormat Format() const noexcept;
  InterruptGate& Gate() noexcept { return gate_; }
  Device* Driver() const noexcept { return driver_; }

  // Worker only.
  u32 configured_ = 0;  // the last ConfigureCamera succeeded

 private:
  enum State : u32 { Idle = 1, Streaming = 2 };
  enum StartFailure : u32;

  /// The channel's messages are for its makers; hosts never get them.
  static constexpr bool IsDebugEnabled() noexcept { return false; }
  void Report(u32 failures) noexcept;

  bool StartClaimed(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept;
  void DropClaim() noexcept;
  void GiveUpOwnThread() noexcept;
  void StopWorker() noexcept;
  void EndWorker() noexcept;
  bool AbandonWorker() noexcept;
  u32 Execute() noexcept;
  void DoPass() noexcept;
  void Configure() noexcept;
  void CheckActivity() noexcept;

  u32 StartStreamer() noexcept;
  bool SetUpStream(u32& failures) noexcept;
  bool CreateProtocols() noexcept;
  bool ChoosePorts() noexcept;
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
  const ChannelTiming timing_;

  // Written by Start while no worker runs.
  u32 width_ = 0;
  u32 height_ = 0;
  u32 quality_ = 60;
  u32 frameInterval_ = 0;  // milliseconds

  COptex statusLock_;
  u32 statusCounter_ = 0;  // under statusLock_

  // Read across threads without a lock: a stale value costs one packet or one pass, so that relaxed order is
  // enough. What they stand for is handed over by the starts and ends of the threads.
  std::atomic<u32> state_{Idle};        // by the worker and the stopping thread
  std::atomic<bool> terminate_{false};  // by the stopping thread
  std::atomic<bool> streaming_{false};  // by whoever holds streamerLock_
  std::atomic<u32> receiveTimeout_;     // milliseconds; by the worker and the receive thread

  COptex timedOutLock_;
  bool timedOut_ = false;  // under timedOutLock_
  Activity activity_;

  // Created and destroyed under streamerLock_. The receive thread uses rtcp_ without it: that thread starts
  // behind the creation and ends before the destruction. The lock is held across the talk with the camera;
  // what waits for it is a stop, behind the worker's end.
  COptex streamerLock_;
  std::unique_ptr<CRTSPClient> rtsp_;
  std::unique_ptr<CRTCPReporter> rtcp_;
  std::unique_ptr<CRTPReceiver> rtp_;
  PortPair ports_;

  // Receive thread only, and StopStreamer behind that thread's end.
  FrameAssembly assembly_;

  bool stopClaimed_ = false;  // under the lock of ClaimStop
  InterruptGate gate_;
  platform::Thread worker_;  // the starting and stopping threads'
};

}  // namespace sarnevo
