#pragma once

#include "platform/Time.h"

namespace sarnevo {

/// The rhythm of a camera channel. The values are what cameras need and hosts expect; tests shorten them.
struct ChannelTiming {
  /// How often the worker looks after a stream that plays.
  platform::Milliseconds streamPass{1000};
  /// After a configuration request, since the encoder has to settle, and after a failed start.
  platform::Milliseconds pause{3000};
  /// How long a stream may give no frame before the host is told.
  platform::Milliseconds receiveTimeout{5000};
  /// The same while a stream starts, until its first packet.
  platform::Milliseconds startingReceiveTimeout{10000};
  /// How long the UDP port waits for a packet, before the stream counts as lost.
  platform::Milliseconds packetTimeout{5000};
  /// Longest wait for the next piece of an RTSP reply, and the pause between two looks at a TCP connection that
  /// is being made.
  platform::Milliseconds rtspReceive{2000};
  platform::Milliseconds rtspConnectStep{100};
};

}  // namespace sarnevo
