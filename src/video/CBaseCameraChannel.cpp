#include "video/CBaseCameraChannel.h"

#include <array>
#include <cstdio>
#include <new>
#include <utility>

#include "device/Device.h"
#include "threads/HostCall.h"
#include "video/CameraStreamer.h"

namespace sarnevo {

using platform::Milliseconds;

namespace {

constexpr u32 kEndedWithoutDriver = 123;

}  // namespace

CBaseCameraChannel::CBaseCameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink,
                                       std::shared_ptr<FrameReturns> returns, bool useObjectPath)
    : useObjectPath_(useObjectPath),
      channelIndex_(channelIndex),
      sink_(sink),
      driver_(driver),
      returns_(std::move(returns)),
      timing_(driver != nullptr ? driver->GetChannelTiming() : ChannelTiming{}),
      receiveTimeout_(timing_.receiveTimeout),
      claim_(driver) {}

CBaseCameraChannel::~CBaseCameraChannel() = default;

bool CBaseCameraChannel::Start(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept {
  // Without an earlier worker nobody is waited for.
  if (state_.load(std::memory_order_relaxed) != Idle || (worker_.HasHandle() && !claim_.Take())) {
    return false;
  }
  return StartClaimed(frameInterval, width, height, quality);
}

bool CBaseCameraChannel::StartClaimed(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept {
  if (worker_.HasHandle()) {
    StopWorker();
  }
  if (streaming_.load(std::memory_order_relaxed)) {
    StopStreamer();  // that worker got as far as a stream of the earlier format
  }
  state_.store(Idle, std::memory_order_relaxed);

  format_.frameInterval = frameInterval;
  format_.width = width;
  format_.height = height;
  format_.quality = quality;
  terminate_.store(false, std::memory_order_relaxed);
  char name[24];
  std::snprintf(name, sizeof(name), "KolvexChannel%u", channelIndex_);
  const bool started = worker_.Start(name, [self = shared_from_this()] { self->Execute(); });
  claim_.Drop();
  return started;
}

u32 CBaseCameraChannel::Stop() noexcept {
  state_.store(Idle, std::memory_order_relaxed);
  StopWorker();
  // A worker that was just bringing the stream up may have set it to Streaming.
  state_.store(Idle, std::memory_order_relaxed);
  StopStreamer();
  return 1;
}

bool CBaseCameraChannel::ChangeFormat(u32 width, u32 height, u32 frameInterval) noexcept {
  if (!claim_.Take()) {
    return false;
  }
  Stop();
  return StartClaimed(frameInterval, width, height, format_.quality);
}

u32 CBaseCameraChannel::GetStatusCounter() noexcept {
  const COptexGuard guard(statusLock_);
  return statusCounter_;
}

void CBaseCameraChannel::StopWorker() noexcept {
  if (claim_.IsWorkedFor()) {
    own_thread::LetGo();  // the host has called from inside a callback of this channel
  }
  if (!terminate_.exchange(true, std::memory_order_relaxed)) {
    // Beyond its patience it may still wait for the receive thread, and that for the sink's OnFrame, which is never
    // cut short.
    worker_.End(2 * ReceiveTimeoutNow());
  }
}

u32 CBaseCameraChannel::Execute() noexcept {
  if (driver_ == nullptr) {
    return kEndedWithoutDriver;
  }
  const StopClaim::Scope scope(claim_);
  format_.codec = driver_->GetCodec();
  format_.videoStandard = driver_->GetVideoStandard();
  configured_ = 0;
  // The flag is for the worker that was started last, not for one that was let go.
  while (!own_thread::IsLetGo() && !terminate_.load(std::memory_order_relaxed)) {
    DoPass();
    CheckActivity();
  }
  return 0;
}

void CBaseCameraChannel::DoPass() noexcept {
  if (streaming_.load(std::memory_order_relaxed)) {
    own_thread::Pause(timing_.streamPass);
    if (IsTimedOut()) {
      if (IsDebugEnabled()) {
        driver_->DebugMessage(DebugLevelFailure, "%s: Receive network timeout\n",
                              "sarnevo::CBaseCameraChannel::Execute");
        if (own_thread::IsLetGo()) {
          return;  // the stream is another worker's by now
        }
      }
      StopStreamer();
      if (!terminate_.load(std::memory_order_relaxed)) {
        // A failure is the next pass's affair: it tries again, and cleans up should it fail, too. Where this start has
        // got as far as opening its ports, it fails for certain.
        StartStreamer();
      }
    }
  } else if (configured_ == 0) {
    Configure();
    own_thread::Pause(timing_.pause);
  } else if (StartStreamer() == 0 && !own_thread::IsLetGo()) {
    StopStreamer();
    own_thread::Pause(timing_.pause);
  }
}

void CBaseCameraChannel::Configure() noexcept {
  try {
    ConfigureCamera();
  } catch (const std::bad_alloc&) {
    configured_ = 0;  // the next pass may find memory again
  }
}

void CBaseCameraChannel::CheckActivity() noexcept {
  if (activity_.IsActive(ReceiveTimeoutNow())) {
    return;
  }
  if (sink_ == nullptr || CallHost([this] { sink_->OnNoData(); })) {
    activity_.TouchActivity();
  }
}

void CBaseCameraChannel::PacketReceived(CRTPReceiver* /*receiver*/, const sockaddr_in* /*from*/,
                                        const CRTPPacket* packet) {
  if (!IsGateOpen()) {
    return;
  }
  if (ReceiveTimeoutNow() > timing_.receiveTimeout) {
    receiveTimeout_.store(timing_.receiveTimeout, std::memory_order_relaxed);
  }
  const StopClaim::Scope scope(claim_);
  streamer_->PacketReceived(*packet);
}

void CBaseCameraChannel::ReceiveTimeout() {
  if (IsGateOpen()) {
    SetTimedOut(true);
  }
}

void CBaseCameraChannel::SocketClosed(CRTPReceiver* /*receiver*/) {
  if (IsGateOpen() && IsDebugEnabled()) {
    driver_->DebugMessage(DebugLevelFailure, "%s: Socket closed!\n",
                          "sarnevo::CBaseCameraChannel::SocketClosed");
  }
}

u32 CBaseCameraChannel::StartStreamer() noexcept {
  if (driver_ == nullptr) {
    return 0;
  }
  u32 failures = 0;
  bool good = false;
  {
    const COptexGuard guard(streamerLock_);
    if (ReceiveTimeoutNow() <= timing_.receiveTimeout) {
      receiveTimeout_.store(timing_.startingReceiveTimeout, std::memory_order_relaxed);
    }
    if (!streamer_) {
      streamer_ = MakeStreamer();
    }
    if (streamer_) {
      failures = streamer_->Start();
      good = (failures & ~CameraStreamer::NoDescribe) == 0;
    }
    if (good) {
      streaming_.store(true, std::memory_order_relaxed);
      SetTimedOut(false);
      state_.store(Streaming, std::memory_order_relaxed);
    }
  }
  Report(failures);
  return good ? 1 : 0;
}

// Null without memory.
std::shared_ptr<CameraStreamer> CBaseCameraChannel::MakeStreamer() noexcept {
  try {
    FrameAssembly assembly({.allocator = driver_->GetFrameAllocator(), .sink = sink_, .returns = returns_},
                           format_.codec, useObjectPath_ ? JpegLayout::Group1 : JpegLayout::Group2, activity_);
    assembly.SetPictureSize({format_.width, format_.height});
    return std::make_shared<CameraStreamer>(
        shared_from_this(),
        CameraStreamer::Target{driver_->GetAddress(), driver_->GetNetworkTimeout(), useObjectPath_}, timing_,
        assembly, activity_);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void CBaseCameraChannel::StopStreamer() noexcept {
  const COptexGuard guard(streamerLock_);
  if (streamer_) {
    streamer_->Stop(timing_.farewell);
    streamer_.reset();
  }
  streaming_.store(false, std::memory_order_relaxed);
  SetTimedOut(false);
}

void CBaseCameraChannel::Report(u32 failures) noexcept {
  if (!IsDebugEnabled()) {
    return;
  }
  static constexpr std::array<std::pair<u32, const char*>, 5> kTexts{{
      {CameraStreamer::NoConnection, "%s: Failed to Open RTSP connection on 554 port"},
      {CameraStreamer::NoDescribe, "%s: Failed to execute RTSP DESCRIBE"},
      {CameraStreamer::NoPorts, "%s: Failed to open ports for RTP and RTCP"},
      {CameraStreamer::NoSetup, "%s: Failed to execute RTSP SETUP"},
      {CameraStreamer::NoPlay, "%s: Failed to execute RTSP PLAY"},
  }};
  for (const auto& [failure, text] : kTexts) {
    if ((failures & failure) != 0) {
      driver_->DebugMessage(DebugLevelFailure, text, "sarnevo::CBaseCameraChannel::StartStreamer");
    }
  }
}

bool CBaseCameraChannel::IsGateOpen() const noexcept {
  return state_.load(std::memory_order_relaxed) == Streaming && !terminate_.load(std::memory_order_relaxed) &&
         streaming_.load(std::memory_order_relaxed);
}

void CBaseCameraChannel::SetTimedOut(bool timedOut) noexcept {
  const COptexGuard guard(timedOutLock_);
  timedOut_ = timedOut;
}

bool CBaseCameraChannel::IsTimedOut() noexcept {
  const COptexGuard guard(timedOutLock_);
  return timedOut_;
}

Milliseconds CBaseCameraChannel::ReceiveTimeoutNow() const noexcept {
  return receiveTimeout_.load(std::memory_order_relaxed);
}

}  // namespace sarnevo
