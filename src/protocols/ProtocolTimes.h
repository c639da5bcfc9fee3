#pragma once

#include "platform/Time.h"

namespace sarnevo {

/// The fixed times of the streaming protocols. The defaults are the ones in use; only tests give others.
struct ProtocolTimes {
  /// Longest wait of the RTSP client for the next piece of a reply.
  platform::Milliseconds rtspReceive{2000};
  /// Pause between two looks at a TCP connection that is being made.
  platform::Milliseconds rtspConnectStep{100};
  /// Longest time for one whole RTSP reply. Far above what a slow camera needs; it only ends a reply that
  /// comes byte by byte for ever.
  platform::Milliseconds rtspReply{300'000};
  /// Wait of a UDP port for a datagram, after which it reports a time-out and waits again.
  platform::Milliseconds portReceive{5000};
  /// Wait of the RTCP reporter for a datagram, after which it looks whether it has to end.
  platform::Milliseconds reporterReceive{500};
  /// How long CRTCPReporter::Stop waits for the thread before it ends it.
  platform::Milliseconds reporterStop{10'000};
};

}  // namespace sarnevo
