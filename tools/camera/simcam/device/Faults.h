#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>

namespace simcam {

/// When a packet fault strikes. As a text: "0" never, "0.05" one packet in twenty by chance, "every:7" each
/// seventh packet of a stream, "next:3" the next three packets.
struct FaultRate {
  double probability = 0;
  std::uint32_t every = 0;
  std::uint32_t next = 0;

  bool active() const { return probability > 0 || every > 0 || next > 0; }
  /// Whether the packet with that ordinal, counted from 1, is struck; uses up one of `next`.
  bool Strikes(std::mt19937_64& dice, std::uint64_t ordinal);

  static std::optional<FaultRate> Parse(std::string_view text);
  std::string ToText() const;
};

/// What goes wrong with the packets of a camera's streams.
struct PacketFaults {
  FaultRate lose;       ///< never sent
  FaultRate duplicate;  ///< sent twice
  FaultRate reorder;    ///< sent behind the next packet
  FaultRate truncate;   ///< cut to a random length
  FaultRate corrupt;    ///< one to eight bytes behind the RTP header changed
  FaultRate garbage;    ///< a datagram of random bytes sent in front
  FaultRate unmark;     ///< marker bit taken away
  FaultRate swap;       ///< sequence number exchanged with the next packet's

  bool active() const;
};

/// What goes wrong with the replies of a TCP service. As a text: KIND[:VALUE][@MATCH][*COUNT], for example
/// "cut:7@multimedia.cgi*2": the next two replies to requests that hold "multimedia.cgi" end after 7 bytes.
struct ReplyFault {
  enum class Kind : std::uint8_t {
    None,
    Refuse,   ///< nobody listens; VALUE, MATCH and COUNT don't apply
    Stall,    ///< the connection stands and nothing comes
    Delay,    ///< the reply comes VALUE milliseconds late
    Drip,     ///< one byte each VALUE milliseconds
    Pieces,   ///< VALUE bytes at a time, 5 ms apart
    Cut,      ///< the connection ends after VALUE bytes
    Reset,    ///< the connection is reset at once
    Status,   ///< the reply carries status VALUE
    Garbage,  ///< VALUE random bytes in place of the reply
    Endless,  ///< the reply's body never ends
  };
  Kind kind = Kind::None;
  std::uint32_t value = 0;
  std::string match;        ///< only requests that contain this text
  std::uint32_t count = 0;  ///< replies left to spoil; 0: all

  /// The fault for a reply to that request, if it applies; counts it off.
  std::optional<ReplyFault> Take(std::string_view request);

  static std::optional<ReplyFault> Parse(std::string_view text);
  std::string ToText() const;
};

/// How often each fault has struck.
struct FaultCounts {
  std::uint64_t lost = 0, duplicated = 0, reordered = 0, truncated = 0, corrupted = 0, garbage = 0,
                unmarked = 0, swapped = 0, httpReplies = 0, rtspReplies = 0, reboots = 0;
};

/// All faults of one camera.
struct Faults {
  PacketFaults packets;
  bool silent = false;  ///< streams are set up and no RTP comes
  ReplyFault http;
  ReplyFault rtsp;
};

}  // namespace simcam
