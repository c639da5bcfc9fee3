#include "video/CBaseCameraChannel.h"

#include <mutex>
#include <new>
#include <string>

#include "device/Device.h"
#include "protocols/CRTCPReporter.h"
#include "protocols/CRTPPacket.h"
#include "protocols/CRTPReceiver.h"
#include "protocols/CRTSPClient.h"
#include "threads/HostCall.h"
#include "video/ChannelThread.h"

namespace sarnevo {

using platform::Milliseconds;
using platform::WaitResult;

namespace {

constexpr u32 kEndedWithoutDriver = 123;

u32 Count(Milliseconds time) { return static_cast<u32>(time.count()); }

FrameRoute RouteOf(Device* driver, ipcapture::IFrameSink* sink) {
  return {
      .allocator = driver != nullptr ? driver->GetFrameAllocator() : nullptr, .sink = sink, .driver = driver};
}

// One stop is claimed at a time, so that of two threads that are about to wait for each other one sees the
// other's claim. Workers are given up under it too: whoever holds it finds the channel of its own thread alive,
// or isn't that channel's thread any more. Held for moments, and nothing that is waited for behind it needs it.
std::mutex claimLock;

}  // namespace

CBaseCameraChannel::CBaseCameraChannel(u32 channelIndex, Device* driver, ipcapture::IFrameSink* sink,
                                       bool useObjectPath)
    : useObjectPath_(useObjectPath),
      channelIndex_(channelIndex),
      sink_(sink),
      driver_(driver),
      timing_(driver != nullptr ? driver->GetChannelTiming() : ChannelTiming{}),
      receiveTimeout_(Count(timing_.receiveTimeout)),
      assembly_(RouteOf(driver, sink), driver != nullptr ? driver->GetCodec() : 0,
                useObjectPath ? JpegLayout::Group1 : JpegLayout::Group2, activity_) {}

CBaseCameraChannel::~CBaseCameraChannel() {
  rtsp_.reset();
  rtcp_.reset();
  rtp_.reset();
}

bool CBaseCameraChannel::Start(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept {
  if (state_.load(std::memory_order_relaxed) != Idle || !ClaimStop()) {
    return false;
  }
  return StartClaimed(frameInterval, width, height, quality);
}

bool CBaseCameraChannel::StartClaimed(u32 frameInterval, u32 width, u32 height, u32 quality) noexcept {
  GiveUpOwnThread();
  if (worker_.IsAlive()) {
    StopWorker();
  }
  worker_.Release();
  if (streaming_.load(std::memory_order_relaxed)) {
    StopStreamer();  // that worker got as far as a stream of the earlier format
  }
  state_.store(Idle, std::memory_order_relaxed);

  frameInterval_ = frameInterval;
  width_ = width;
  height_ = height;
  quality_ = quality;
  assembly_.SetPictureSize(width, height);
  gate_.Reset();
  terminate_.store(false, std::memory_order_relaxed);
  const bool started = worker_.Start("KolvexChannel" + std::to_string(channelIndex_), [this] { Execute(); });
  DropClaim();
  return started;
}

u32 CBaseCameraChannel::Stop() noexcept {
  GiveUpOwnThread();
  state_.store(Idle, std::memory_order_relaxed);
  StopWorker();
  // A worker that was just bringing the stream up may have moved it.
  state_.store(Idle, std::memory_order_relaxed);
  StopStreamer();
  return 1;
}

bool CBaseCameraChannel::ChangeFormat(u32 width, u32 height, u32 frameInterval) noexcept {
  if (!ClaimStop()) {
    return false;
  }
  Stop();
  return StartClaimed(frameInterval, width, height, quality_);
}

u32 CBaseCameraChannel::GetStatusCounter() noexcept {
  const COptexGuard guard(statusLock_);
  return statusCounter_;
}

bool CBaseCameraChannel::ClaimStop() noexcept {
  const std::lock_guard guard(claimLock);
  const CBaseCameraChannel* const own = channel_thread::Current();
  if (own != nullptr && own != this && own->stopClaimed_) {
    return false;
  }
  stopClaimed_ = true;
  return true;
}

void CBaseCameraChannel::DropClaim() noexcept {
  const std::lock_guard guard(claimLock);
  stopClaimed_ = false;
}

bool CBaseCameraChannel::IsCallersChannelClaimed() noexcept {
  const std::lock_guard guard(claimLock);
  const CBaseCameraChannel* const own = channel_thread::Current();
  return own != nullptr && own->stopClaimed_;
}

bool CBaseCameraChannel::IsCallerOf(const Device* driver) noexcept {
  const std::lock_guard guard(claimLock);
  const CBaseCameraChannel* const own = channel_thread::Current();
  return own != nullptr && own->driver_ == driver;
}

// The host has called from inside a callback of this channel.
void CBaseCameraChannel::GiveUpOwnThread() noexcept {
  if (channel_thread::Current() == this) {
    channel_thread::GiveUp();
  }
}

void CBaseCameraChannel::StopWorker() noexcept {
  if (terminate_.exchange(true, std::memory_order_relaxed)) {
    return;
  }
  if (worker_.HasHandle() && !worker_.IsCurrent()) {
    EndWorker();
  }
  worker_.Release();
}

void CBaseCameraChannel::EndWorker() noexcept {
  if (worker_.Wait(2 * ReceiveTimeoutNow()) != WaitResult::TimedOut) {
    return;
  }
  // It stands in the talk with a slow camera, which can be interrupted and then ends in order; or in the
  // host's code, where it is left.
  gate_.Interrupt();
  // In neither place it waits for the receive thread, and that for the sink's OnFrame, which is never cut short.
  while (worker_.Wait(timing_.interruptMoment) == WaitResult::TimedOut && !AbandonWorker()) {
  }
}

bool CBaseCameraChannel::AbandonWorker() noexcept {
  const std::lock_guard guard(claimLock);
  return worker_.Abandon(Milliseconds{0});
}

u32 CBaseCameraChannel::Execute() noexcept {
  if (driver_ == nullptr) {
    return kEndedWithoutDriver;
  }
  channel_thread::SetCurrent(this);
  configured_ = 0;
  while (!terminate_.load(std::memory_order_relaxed)) {
    DoPass();
    CheckActivity();
  }
  channel_thread::SetCurrent(nullptr);
  return 0;
}

void CBaseCameraChannel::DoPass() noexcept {
  if (streaming_.load(std::memory_order_relaxed)) {
    gate_.Pause(timing_.streamPass);
    if (IsTimedOut()) {
      if (IsDebugEnabled()) {
        driver_->DebugMessage(DebugLevelFailure, "%s: Receive network timeout\n",
                              "sarnevo::CBaseCameraChannel::Execute");
      }
      StopStreamer();
      StartStreamer();
    }
  } else if (configured_ == 0) {
    Configure();
    gate_.Pause(timing_.pause);
  } else if (StartStreamer() == 0) {
    StopStreamer();
    gate_.Pause(timing_.pause);
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
  if (sink_ != nullptr) {
    CallHost([sink = sink_] { sink->OnNoData(); });
  }
  activity_.Touch();
}

void CBaseCameraChannel::PacketReceived(CRTPReceiver* /*receiver*/, const sockaddr_in* /*from*/,
                                        const CRTPPacket* packet) {
  if (!IsGateOpen()) {
    return;
  }
  if (ReceiveTimeoutNow() > timing_.receiveTimeout) {
    receiveTimeout_.store(Count(timing_.receiveTimeout), std::memory_order_relaxed);
  }
  const u16 last = rtcp_->GetLastSequence();
  rtcp_->SetLastSequence(packet->sequence);
  // 0 also stands for "none yet": any number passes behind it.
  if (last != 0 && static_cast<u16>(last + 1) != packet->sequence) {
    assembly_.Resynchronise();
  }
  channel_thread::SetCurrent(this);
  assembly_.Add({packet->payload, packet->payloadSize}, packet->marker != 0);
  channel_thread::SetCurrent(nullptr);
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

StreamFormat CBaseCameraChannel::Format() const noexcept {
  return {.width = width_,
          .height = height_,
          .quality = quality_,
          .frameInterval = frameInterval_,
          .codec = driver_->GetCodec(),
          .videoStandard = driver_->GetVideoStandard()};
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
  return Milliseconds{receiveTimeout_.load(std::memory_order_relaxed)};
}

}  // namespace sarnevo
