#include "simcam/codec/Packetizer.h"

#include <algorithm>
#include <array>

namespace simcam {

namespace {

// RFC 2435, 3.1:
//
//    0                   1                   2                   3
//    0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//   | Type-specific |              Fragment Offset                  |
//   |      Type     |       Q       |     Width     |     Height    |
std::array<std::uint8_t, 8> MainHeader(const StreamFormat& format, std::size_t fragmentOffset) {
  constexpr std::uint8_t kTablesInBand = 255;  // Q of 128 and above: the tables travel with the frame
  return {0,
          static_cast<std::uint8_t>(fragmentOffset >> 16U),
          static_cast<std::uint8_t>(fragmentOffset >> 8U),
          static_cast<std::uint8_t>(fragmentOffset),
          static_cast<std::uint8_t>(format.sampling),
          kTablesInBand,
          static_cast<std::uint8_t>(format.width / 8),
          static_cast<std::uint8_t>(format.height / 8)};
}

// RFC 2435, 3.1.8: must-be-zero, precision (two 8-bit tables), length of the tables.
constexpr std::array<std::uint8_t, 4> kTableHeader = {0, 0, 0, 128};

/// A COM segment (ITU-T T.81, B.2.4.5) that fills the room in front of the scan.
std::array<std::uint8_t, kCommentBytes> CommentSegment(std::string_view text) {
  std::array<std::uint8_t, kCommentBytes> segment{};
  segment[0] = 0xFF;
  segment[1] = 0xFE;
  segment[3] = static_cast<std::uint8_t>(kCommentBytes - 2);
  std::copy_n(text.begin(), std::min(text.size(), kCommentBytes - 4), segment.begin() + 4);
  return segment;
}

}  // namespace

void PacketizeJpeg(const EncodedJpeg& jpeg, const StreamFormat& format, std::string_view comment,
                   PacketizedFrame& into) {
  const std::span<const std::uint8_t> scan = jpeg.scan();
  std::size_t sent = 0;
  do {
    std::size_t room = kMaxPayload - 8;
    into.Append(MainHeader(format, sent));
    if (sent == 0) {
      into.Append(kTableHeader);
      into.Append(jpeg.luma);
      into.Append(jpeg.chroma);
      room -= kTableHeader.size() + jpeg.luma.size() + jpeg.chroma.size();
      if (format.layout == JpegLayout::Commented) {
        into.Append(CommentSegment(comment));
        room -= kCommentBytes;
      }
    }
    const std::size_t count = std::min(room, scan.size() - sent);
    into.Append(scan.subspan(sent, count));
    into.EndPayload();
    sent += count;
  } while (sent < scan.size());
}

void PacketizeMpeg4(std::span<const std::uint8_t> frame, PacketizedFrame& into) {
  for (std::size_t sent = 0; sent < frame.size(); sent += kMaxPayload) {
    into.Append(frame.subspan(sent, std::min(kMaxPayload, frame.size() - sent)));
    into.EndPayload();
  }
}

}  // namespace simcam
