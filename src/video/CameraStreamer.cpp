// The half of CBaseCameraChannel that talks RTSP: brings the stream up and takes it down.
#include <array>
#include <new>
#include <utility>

#include "device/Device.h"
#include "protocols/CRTCPReporter.h"
#include "protocols/CRTPReceiver.h"
#include "protocols/CRTSPClient.h"
#include "video/CBaseCameraChannel.h"

namespace sarnevo {

namespace {

constexpr u16 kRtspPort = 554;

template <typename Object, typename... Arguments>
void CreateIfMissing(std::unique_ptr<Object>& object, Arguments&&... arguments) {
  if (!object) {
    object = std::make_unique<Object>(std::forward<Arguments>(arguments)...);
  }
}

}  // namespace

// What went wrong in a start, one bit each. Told when no lock is held any more.
enum CBaseCameraChannel::StartFailure : u32 {
  NoConnection = 1,
  NoDescribe = 2,
  NoPorts = 4,
  NoSetup = 8,
  NoPlay = 16,
};

u32 CBaseCameraChannel::StartStreamer() noexcept {
  if (driver_ == nullptr) {
    return 0;
  }
  u32 failures = 0;
  bool good = false;
  {
    const COptexGuard guard(streamerLock_);
    good = SetUpStream(failures);
  }
  Report(failures);
  return good ? 1 : 0;
}

bool CBaseCameraChannel::SetUpStream(u32& failures) noexcept {
  const auto step = [&failures](bool done, StartFailure failure) {
    failures |= done ? 0U : static_cast<u32>(failure);
    return done;
  };
  if (ReceiveTimeoutNow() <= timing_.receiveTimeout) {
    receiveTimeout_.store(static_cast<u32>(timing_.startingReceiveTimeout.count()), std::memory_order_relaxed);
  }
  if (!CreateProtocols() ||
      !step(rtsp_->Connect(driver_->GetAddress().c_str(), kRtspPort, driver_->GetNetworkTimeout()),
            NoConnection)) {
    return false;
  }
  // Some cameras stumble over DESCRIBE and play all the same.
  step(rtsp_->Describe(useObjectPath_), NoDescribe);
  if (!step(ChoosePorts(), NoPorts) || !step(rtsp_->Setup(ports_.rtp, ports_.rtcp, useObjectPath_), NoSetup)) {
    return false;
  }
  rtp_->SetUser(this);
  activity_.Touch();
  if (!step(rtsp_->Play(useObjectPath_), NoPlay)) {
    return false;
  }
  streaming_.store(true, std::memory_order_relaxed);
  SetTimedOut(false);
  state_.store(Streaming, std::memory_order_relaxed);
  return true;
}

bool CBaseCameraChannel::CreateProtocols() noexcept {
  const ProtocolTimes times{.rtspReceive = timing_.rtspReceive,
                            .rtspConnectStep = timing_.rtspConnectStep,
                            .portReceive = timing_.packetTimeout};
  try {
    CreateIfMissing(rtsp_, times);
    gate_.Watch<&CRTSPClient::Interrupt>(*rtsp_);
    CreateIfMissing(rtcp_);
    CreateIfMissing(rtp_, times);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CBaseCameraChannel::ChoosePorts() noexcept {
  const auto ports = OpenPortPair(rtp_->Port(), *rtcp_);
  ports_ = ports.value_or(ports_);
  return ports.has_value();
}

void CBaseCameraChannel::Report(u32 failures) noexcept {
  if (!IsDebugEnabled()) {
    return;
  }
  static constexpr std::array<std::pair<u32, const char*>, 5> kTexts{{
      {NoConnection, "%s: Failed to Open RTSP connection on 554 port"},
      {NoDescribe, "%s: Failed to execute RTSP DESCRIBE"},
      {NoPorts, "%s: Failed to open ports for RTP and RTCP"},
      {NoSetup, "%s: Failed to execute RTSP SETUP"},
      {NoPlay, "%s: Failed to execute RTSP PLAY"},
  }};
  for (const auto& [failure, text] : kTexts) {
    if ((failures & failure) != 0) {
      driver_->DebugMessage(DebugLevelFailure, text, "sarnevo::CBaseCameraChannel::StartStreamer");
    }
  }
}

// First the session at the camera, then the reception, then the reports.
void CBaseCameraChannel::StopStreamer() noexcept {
  const COptexGuard guard(streamerLock_);
  if (rtsp_) {
    // A farewell is a courtesy: a camera that answers it byte by byte isn't waited for.
    rtsp_->LimitReplies(timing_.receiveTimeout);
    rtsp_->Pause(useObjectPath_);
    rtsp_->Teardown(useObjectPath_);
    rtsp_->Disconnect();
    gate_.Unwatch();
    rtsp_.reset();
  }
  if (rtp_) {
    rtp_->Port().Close();
    rtp_.reset();
  }
  if (rtcp_) {
    rtcp_->RequestStop();
    rtcp_->Stop();
    rtcp_.reset();
  }
  streaming_.store(false, std::memory_order_relaxed);
  SetTimedOut(false);
  assembly_.Resynchronise();
}

}  // namespace sarnevo
