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
  FaultRate reorder;    ///< sent after the next packet
  FaultRate truncate;   ///< cut to a random length
  FaultRate corrupt;    ///< one to eight bytes after the RTP header changed
  FaultRate garbage;    ///< a datagram of random bytes sent in front
  FaultRate oversize;   ///< a datagram of 6000 bytes sent in front
  FaultRate empty;      ///< a datagram without a byte sent in front
  FaultRate stranger;   ///< somebody else's packet, from another address, sent in front
  FaultRate mistype;    ///< payload type that the description doesn't name
  FaultRate unmark;     ///< marker bit taken away
  FaultRate swap;       ///< sequence number exchanged with the next packet's

  bool active() const;
};

/// What becomes of a stream's RTCP reports.
enum class ReportFault : std::uint8_t {
  None,
  Lose,      ///< none is sent
  Short,     ///< 19 bytes of one, less than a client needs to answer
  Garbage,   ///< 64 senseless bytes in its place
  Oversize,  ///< 6000 bytes after it in the same datagram
  Empty,     ///< a datagram without a byte in its place
};

/// What goes wrong with the replies of a TCP service. As a text: KIND[:VALUE][/PLACE][@MATCH][*COUNT]. Up to
/// PLACE the reply is as it should be. For example "cut:7@multimedia.cgi*2": the next two replies to requests
/// that hold "multimedia.cgi" end after 7 bytes; "stall/header2@SETUP": nothing comes any more from the middle of
/// the second header on.
struct ReplyFault {
  enum class Kind : std::uint8_t {
    None,
    Refuse,    ///< nobody listens; VALUE, PLACE, MATCH and COUNT don't apply
    Stall,     ///< the connection is up and nothing comes
    Delay,     ///< the reply comes VALUE milliseconds late
    Drip,      ///< one byte each VALUE milliseconds
    Pieces,    ///< VALUE bytes at a time, 5 ms apart
    Cut,       ///< the connection ends after VALUE bytes, or at PLACE
    Reset,     ///< the connection is reset
    Status,    ///< the reply carries status VALUE
    Garbage,   ///< VALUE random bytes in place of the reply, and the connection ends
    Oversize,  ///< VALUE bytes too many; the length in the head counts those in the body
    Endless,   ///< the reply's body never ends
    Gone,      ///< the camera is gone in place of a reply, and back after VALUE milliseconds
    Turn,      ///< the same, and it is back as the other group
  };
  enum class Place : std::uint8_t {
    Start,
    Connect,  ///< before any request, as soon as a client has connected; MATCH doesn't apply
    Status,   ///< in the middle of the status line
    Header,   ///< in the middle of header number `header`, from 1; as the next when there aren't so many
    Body,     ///< in the middle of the body, or at the reply's end without one
  };
  Kind kind = Kind::None;
  std::uint32_t value = 0;
  Place place = Place::Start;
  std::uint32_t header = 0;
  std::string match;        ///< only requests that contain this text
  std::uint32_t count = 0;  ///< replies left to spoil; 0: all

  /// The fault for a reply to that request, if it applies; counts it off.
  std::optional<ReplyFault> Take(std::string_view request);
  /// The fault for a new connection.
  std::optional<ReplyFault> TakeAtConnect();

  /// How many bytes of that reply come before the place.
  std::size_t OffsetIn(std::string_view reply) const;
  /// Makes the body larger, if that is the fault, so that the head can give its length.
  void Lengthen(std::string& body) const;

  static std::optional<ReplyFault> Parse(std::string_view text);
  std::string ToText() const;

 private:
  std::optional<ReplyFault> CountOff();
};

/// How often each fault has struck.
struct FaultCounts {
  std::uint64_t lost = 0, duplicated = 0, reordered = 0, truncated = 0, corrupted = 0, garbage = 0,
                oversized = 0, emptied = 0, strangers = 0, mistyped = 0, unmarked = 0, swapped = 0, reports = 0,
                httpReplies = 0, rtspReplies = 0, reboots = 0;
};

/// All faults of one camera.
struct Faults {
  PacketFaults packets;
  bool silent = false;  ///< streams are set up and no RTP comes
  ReportFault reports = ReportFault::None;
  ReplyFault http;
  ReplyFault rtsp;
};

}  // namespace simcam
