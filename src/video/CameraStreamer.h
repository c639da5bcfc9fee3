#pragma once

#include <memory>
#include <string>

#include "protocols/CRTCPReporter.h"
#include "protocols/CRTPPacket.h"
#include "protocols/CRTPReceiver.h"
#include "protocols/CRTSPClient.h"
#include "protocols/IRTPReceiverUser.h"
#include "video/Activity.h"
#include "video/FrameAssembly.h"

namespace sarnevo {

/// One stream of a channel, from its start to its end: the RTSP session, the local ports, the reports, and the frame in
/// the making. A channel that sets its stream up again makes a new one.
///
/// The receive thread owns it too: a callback may end the stream, and the thread then returns through it.
/// Start and Stop come from one thread at a time. A worker is interrupted in either.
class CameraStreamer : public std::enable_shared_from_this<CameraStreamer> {
 public:
  /// What went wrong in a start, one bit each.
  enum Failure : u32 {
    None = 0,
    NoConnection = 1,
    NoDescribe = 2,  // alone it is no failure
    NoPorts = 4,
    NoSetup = 8,
    NoPlay = 16,
  };

  struct Target {
    std::string address;        ///< dotted IPv4
    u32 connectTimeout = 0;     ///< milliseconds
    bool useObjectPath = true;  ///< see CRTSPClient
  };

  /// @param user      of the receiver; kept until the stream has ended.
  /// @param activity  touched just before PLAY; outlives this object.
  CameraStreamer(std::shared_ptr<IRTPReceiverUser> user, Target target, const ChannelTiming& times,
                 const FrameAssembly& assembly, Activity& activity);

  /// Brings the stream up; the bits of Failure. What was built so far is left for Stop.
  u32 Start() noexcept;
  /// First the session at the camera, then the reception, then the reports.
  /// @param patience  for each of the camera's answers, as a whole
  void Stop(platform::Milliseconds patience) noexcept;

  /// A packet came; on the receive thread.
  void PacketReceived(const CRTPPacket& packet) noexcept;

 private:
  Failure SetUp() noexcept;

  const std::shared_ptr<IRTPReceiverUser> user_;
  const Target target_;
  Activity& activity_;
  CRTSPClient rtsp_;
  CRTCPReporter rtcp_;
  CRTPReceiver rtp_;
  FrameAssembly assembly_;  // receive thread
};

}  // namespace sarnevo
