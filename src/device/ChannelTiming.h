#pragma once

#include "platform/Time.h"
#include "threads/StopPatience.h"

namespace sarnevo {

/// The rhythm of a camera channel and of the protocols under it. The values are what cameras need and hosts expect;
/// tests shorten them.
struct ChannelTiming {
  /// How often the worker looks after a stream that plays.
  platform::Milliseconds streamPass{1000};
  /// After a configuration request, since the encoder has to settle, and after a failed start.
  platform::Milliseconds pause{3000};
  /// How long a stream may give no frame before the host is told.
  platform::Milliseconds receiveTimeout{5000};
  /// The same while a stream starts, until its first packet.
  platform::Milliseconds startingReceiveTimeout{10000};
  /// How long the UDP port waits for a packet, before the stream counts as lost; then it waits again.
  platform::Milliseconds packetTimeout{5000};
  /// Longest wait for the next piece of an RTSP reply, and the pause between two looks at a TCP connection that
  /// is being made.
  platform::Milliseconds rtspReceive{2000};
  platform::Milliseconds rtspConnectStep{100};
  /// Longest time for one whole RTSP reply. Far above what a slow camera needs; it only ends a reply that
  /// comes byte by byte for ever.
  platform::Milliseconds rtspReply{300'000};
  /// Longest time for each of the two answers to a stop's farewell, PAUSE and TEARDOWN.
  platform::Milliseconds farewell{stop_patience::kFarewell};
  /// Wait of the RTCP reporter for a datagram, after which it looks whether it has to end.
  platform::Milliseconds reporterReceive{500};
  /// How long CRTCPReporter::Stop waits for the thread before it interrupts it.
  platform::Milliseconds reporterStop{stop_patience::kReporter};
};

}  // namespace sarnevo
