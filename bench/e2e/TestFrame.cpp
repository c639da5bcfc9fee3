#include "e2e/TestFrame.h"

#include <algorithm>

namespace kolvex_bench {

namespace {

constexpr std::size_t kPayloadBytes = 1400;
constexpr std::size_t kLeastContent = 32;  // bytes of picture in each packet, with room for a mark at the end

// Main header: 1280x720 in units of 8 pixels, type 0 (4:2:2), Q 255 (tables in the packet). The fragment offset,
// bytes 1 to 3, counts the bytes of the scan in front of the packet.
const Payload kMainHeader{0, 0, 0, 0, 0, 255, 160, 90};
const Payload kTableHeader{0, 0, 0, 128};
constexpr std::size_t kTables = 128;

// Visual object sequence, visual object, video object layer of 352x288, and the start of its first picture.
const Payload kMpeg4Headers{0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB5, 0x89, 0x13, 0x00,
                            0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x20, 0x00, 0xC4, 0x8D, 0x88, 0x00,
                            0xCD, 0x0B, 0x04, 0x24, 0x14, 0x63, 0x00, 0x00, 0x01, 0xB6};
const Payload kVop{0x00, 0x00, 0x01, 0xB6};

Payload Start(FrameKind kind, bool isFirst, std::size_t scanBytes) {
  switch (kind) {
    case FrameKind::Jpeg: {
      Payload start = kMainHeader;
      start[1] = static_cast<u8>(scanBytes >> 16);
      start[2] = static_cast<u8>(scanBytes >> 8);
      start[3] = static_cast<u8>(scanBytes);
      if (isFirst) {
        start.insert(start.end(), kTableHeader.begin(), kTableHeader.end());
        start.resize(start.size() + kTables, 16);
      }
      return start;
    }
    case FrameKind::Mpeg4Key:
      return isFirst ? kMpeg4Headers : Payload{};
    case FrameKind::Mpeg4Inter:
      return isFirst ? kVop : Payload{};
  }
  return {};
}

}  // namespace

std::vector<Payload> MakeFrame(FrameKind kind, std::size_t bytes) {
  std::vector<Payload> payloads;
  std::size_t scanBytes = 0;
  for (std::size_t at = 0; at < bytes; at += kPayloadBytes) {
    Payload payload = Start(kind, payloads.empty(), scanBytes);
    const std::size_t start = payload.size();
    payload.resize(std::max(start + kLeastContent, std::min(kPayloadBytes, bytes - at)), 0x5A);
    scanBytes += payload.size() - start;
    payloads.push_back(std::move(payload));
  }
  return payloads;
}

}  // namespace kolvex_bench
