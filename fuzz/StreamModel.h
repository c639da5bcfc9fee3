#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "FrameHost.h"
#include "FuzzTarget.h"
#include "kolvex/Types.h"
#include "video/Mpeg4Header.h"

namespace kolvex_fuzz {

/// What the host has to get of a stream's datagrams: written from the wire's side, with all packets of a frame in
/// hand, to be compared with what the channel does one packet at a time.
class StreamModel {
 public:
  StreamModel(bool jpeg, bool group1) : jpeg_(jpeg), group1_(group1) {}

  /// The stream has just begun, or lost packets.
  void Lose() {
    waiting_ = true;
    start_ = Start::None;
    parts_.clear();
  }
  void SetLast(std::uint16_t sequence) { last_ = sequence; }

  /// A frame's camera data when this datagram has to bring one. @p answer is what the host will do with it.
  std::optional<std::vector<std::uint8_t>> Add(Bytes datagram, std::uint8_t answer) {
    const std::optional<Packet> packet = Parse(datagram);
    if (!packet) {
      return std::nullopt;
    }
    // 0 also means "none yet": any number passes after it.
    if (last_ != 0 && static_cast<std::uint16_t>(last_ + 1) != packet->sequence) {
      Lose();
    }
    last_ = packet->sequence;
    const Start start = StartOf(packet->payload);
    start_ = start != Start::None ? start : start_;
    if (waiting_) {
      if (jpeg_) {
        waiting_ = !packet->marker;  // of a frame that had begun earlier
        return std::nullopt;
      }
      if (start_ != Start::Key) {
        return std::nullopt;
      }
      waiting_ = false;
    }
    parts_.emplace_back(packet->payload.begin(), packet->payload.end());
    std::vector<std::uint8_t> frame = Joined();
    if (frame.size() > 256'000) {
      Lose();
      return std::nullopt;
    }
    if (!packet->marker) {
      return std::nullopt;
    }
    parts_.clear();
    return End(std::move(frame), answer);
  }

  /// What came with an MPEG-4 key frame, for it and those that follow.
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  bool IsKey() const { return key_; }

 private:
  enum class Start { None, Key, Inter };
  struct Packet {
    bool marker = false;
    std::uint16_t sequence = 0;
    Bytes payload;
  };

  // RFC 3550, 5.1 and 5.3.1.
  static std::optional<Packet> Parse(Bytes datagram) {
    if (datagram.size() < 13 || datagram[0] / 64 != 2) {
      return std::nullopt;
    }
    std::size_t header = 12 + 4U * (datagram[0] & 15U);
    if ((datagram[0] & 16) != 0) {
      if (datagram.size() < header + 4) {
        return std::nullopt;
      }
      header += 4 + 4U * (datagram[header + 2] * 256U + datagram[header + 3]);
    }
    if (datagram.size() < header) {
      return std::nullopt;
    }
    return Packet{datagram[1] >= 128, static_cast<std::uint16_t>(datagram[2] * 256 + datagram[3]),
                  datagram.subspan(header)};
  }

  static Start StartOf(Bytes payload) {
    if (payload.size() < 4 || payload[0] != 0 || payload[1] != 0 || payload[2] != 1) {
      return Start::None;
    }
    return payload[3] == 0xB0 ? Start::Key : payload[3] == 0xB6 ? Start::Inter : Start::None;
  }

  // RFC 2435, 3.1: each packet of a JPEG frame has the main header; the first one's stays for the layout.
  std::vector<std::uint8_t> Joined() const {
    std::vector<std::uint8_t> frame;
    for (const auto& part : parts_) {
      const bool first = &part == &parts_.front();
      const std::size_t header = jpeg_ && !first ? std::min<std::size_t>(8, part.size()) : 0;
      frame.insert(frame.end(), part.begin() + static_cast<std::ptrdiff_t>(header), part.end());
    }
    return frame;
  }

  std::optional<std::vector<std::uint8_t>> End(std::vector<std::uint8_t> frame, std::uint8_t answer) {
    const bool arrives = (answer & (FrameHost::NoFrame | FrameHost::NoRoom | FrameHost::ThrowsAtFirst)) == 0;
    if (jpeg_) {
      if (frame.size() <= (group1_ ? 140U : 245U)) {
        return std::nullopt;  // no scan
      }
      return arrives ? std::optional(std::move(frame)) : std::nullopt;
    }
    if (frame.empty()) {
      return std::nullopt;
    }
    key_ = start_ == Start::Key;
    if (key_) {
      const auto size = sarnevo::ParseMpeg4Header(frame);
      if (!size) {
        Lose();
        return std::nullopt;
      }
      width = size->width;
      height = size->height;
    }
    if (!arrives || (answer & (FrameHost::Throws | FrameHost::Refuses)) != 0) {
      Lose();
    }
    return arrives ? std::optional(std::move(frame)) : std::nullopt;
  }

  const bool jpeg_;
  const bool group1_;
  bool waiting_ = true;
  Start start_ = Start::None;
  bool key_ = false;  // the last frame
  std::uint16_t last_ = 0;
  std::vector<std::vector<std::uint8_t>> parts_;
};

}  // namespace kolvex_fuzz
