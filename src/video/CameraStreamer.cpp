#include "video/CameraStreamer.h"

#include <stop_token>
#include <utility>

#include "protocols/PortPair.h"
#include "threads/StoppableThread.h"

namespace sarnevo {

CameraStreamer::CameraStreamer(std::shared_ptr<IRTPReceiverUser> user, Target target,
                               const ChannelTiming& times, const FrameAssembly& assembly, Activity& activity)
    : user_(std::move(user)),
      target_(std::move(target)),
      activity_(activity),
      rtsp_(times),
      rtcp_(times),
      rtp_(times),
      assembly_(assembly) {}

u32 CameraStreamer::Start() noexcept {
  const std::stop_callback interrupt(own_thread::InterruptToken(), [this] { rtsp_.Interrupt(); });
  if (!rtsp_.Connect(target_.address.c_str(), CRTSPClient::kPort, target_.connectTimeout)) {
    return NoConnection;
  }
  // Some cameras stumble over DESCRIBE and play all the same.
  const u32 describe = rtsp_.Describe(target_.useObjectPath) ? None : NoDescribe;
  return describe | SetUp();
}

CameraStreamer::Failure CameraStreamer::SetUp() noexcept {
  rtp_.Port().KeepAlive(weak_from_this());
  const auto ports = OpenPortPair(rtp_.Port(), rtcp_);
  if (!ports) {
    return NoPorts;
  }
  if (!rtsp_.Setup(ports->rtp, ports->rtcp, target_.useObjectPath)) {
    return NoSetup;
  }
  rtp_.SetUser(user_.get());
  activity_.TouchActivity();
  return rtsp_.Play(target_.useObjectPath) ? None : NoPlay;
}

void CameraStreamer::Stop(platform::Milliseconds patience) noexcept {
  {
    const std::stop_callback interrupt(own_thread::InterruptToken(), [this] { rtsp_.Interrupt(); });
    // A farewell is a courtesy: a camera that answers it byte by byte isn't waited for.
    rtsp_.LimitReplies(patience);
    rtsp_.Pause(target_.useObjectPath);
    rtsp_.Teardown(target_.useObjectPath);
    rtsp_.Disconnect();
  }
  rtp_.Port().Close();
  rtcp_.RequestStop();
  rtcp_.Stop();
}

void CameraStreamer::PacketReceived(const CRTPPacket& packet) noexcept {
  const u16 last = rtcp_.GetLastSequence();
  rtcp_.SetLastSequence(packet.sequence);
  // 0 also means "none yet": any number passes after it.
  if (last != 0 && static_cast<u16>(last + 1) != packet.sequence) {
    assembly_.Resynchronise();
  }
  assembly_.Add({packet.payload, packet.payloadSize}, packet.marker != 0);
}

}  // namespace sarnevo
