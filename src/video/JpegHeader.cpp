#include "video/JpegHeader.h"

#include <algorithm>
#include <array>

#include "protocols/BigEndian.h"
#include "video/JpegHuffmanTables.h"

namespace sarnevo {

namespace {

// Offsets in the joined payloads.
constexpr std::size_t kTypeAt = 4;
constexpr std::size_t kWidthAt = 6;   // in units of 8 pixels
constexpr std::size_t kHeightAt = 7;  // in units of 8 pixels
constexpr std::size_t kTable0At = 12;
constexpr std::size_t kTable1At = 76;
constexpr std::size_t kTableSize = 64;
constexpr u32 kSizeUnit = 8;

template <std::size_t... Sizes>
constexpr auto Join(const std::array<u8, Sizes>&... parts) {
  std::array<u8, (Sizes + ...)> all{};
  auto end = all.begin();
  ((end = std::copy(parts.begin(), parts.end(), end)), ...);
  return all;
}

template <typename... Values>
constexpr auto Bytes(Values... values) {
  return std::array<u8, sizeof...(Values)>{static_cast<u8>(values)...};
}

constexpr std::array<u8, kTableSize> kTableRoom{};
// SOI and the two DQT; the tables stay open.
constexpr auto kQuantization = Join(Bytes(0xFF, 0xD8),                                 // SOI
                                    Bytes(0xFF, 0xDB, 0x00, 0x43, 0x00), kTableRoom,   // DQT, table 0
                                    Bytes(0xFF, 0xDB, 0x00, 0x43, 0x01), kTableRoom);  // DQT, table 1
constexpr auto kRestartInterval = Bytes(0xFF, 0xDD, 0x00, 0x04, 0x00, 0x0A);           // DRI, 10 units
// SOF0 with height, width and the sampling of component 0 open, the Huffman tables, SOS.
constexpr auto kFrameAndScan =
    Join(Bytes(0xFF, 0xC0, 0x00, 0x11, 0x08, 0, 0, 0, 0, 0x03),                   // SOF0
         Bytes(0x00, 0, 0x00), Bytes(0x01, 0x11, 0x01), Bytes(0x02, 0x11, 0x01),  // Y, Cb, Cr
         Bytes(0xFF, 0xC4, 0x00, 0x1F, 0x00), jpeg::kDcLuminance,                 // DHT
         Bytes(0xFF, 0xC4, 0x00, 0xB5, 0x10), jpeg::kAcLuminance,                 // DHT
         Bytes(0xFF, 0xC4, 0x00, 0x1F, 0x01), jpeg::kDcChrominance,               // DHT
         Bytes(0xFF, 0xC4, 0x00, 0xB5, 0x11), jpeg::kAcChrominance,               // DHT
         Bytes(0xFF, 0xDA, 0x00, 0x0C, 0x03, 0x00, 0x00, 0x01, 0x11, 0x02, 0x11, 0x00, 0x3F, 0x00));  // SOS

constexpr auto kGroup1Header = Join(kQuantization, kFrameAndScan);
constexpr auto kGroup2Header = Join(kQuantization, kRestartInterval, kFrameAndScan);
static_assert(kGroup1Header.size() == JpegHeaderSize(JpegLayout::Group1));
static_assert(kGroup2Header.size() == JpegHeaderSize(JpegLayout::Group2));

// Where the open bytes lie: in the whole header, and after the start of SOF0.
constexpr std::size_t kDqt0At = 2 + 5;
constexpr std::size_t kDqt1At = kDqt0At + kTableSize + 5;
constexpr std::size_t kSof0Height = 5;
constexpr std::size_t kSof0Width = 7;
constexpr std::size_t kSof0Sampling = 11;

constexpr u8 kSampling422 = 0x21;
constexpr u8 kSampling420 = 0x22;

}  // namespace

std::optional<JpegFrame> ParseJpegFrame(std::span<const u8> frame, JpegLayout layout) noexcept {
  if (frame.size() <= JpegScanAt(layout)) {
    return std::nullopt;
  }
  return JpegFrame{.type = frame[kTypeAt],
                   .width = frame[kWidthAt] * kSizeUnit,
                   .height = frame[kHeightAt] * kSizeUnit,
                   .luminanceTable = frame.subspan(kTable0At, kTableSize),
                   .chrominanceTable = frame.subspan(kTable1At, kTableSize),
                   .scan = frame.subspan(JpegScanAt(layout))};
}

void WriteJpegHeader(std::span<u8> into, const JpegFrame& frame, JpegLayout layout) noexcept {
  const bool group1 = layout == JpegLayout::Group1;
  const std::span<const u8> constant = group1 ? std::span<const u8>(kGroup1Header) : kGroup2Header;
  std::ranges::copy(constant, into.begin());
  std::ranges::copy(frame.luminanceTable, into.subspan(kDqt0At).begin());
  std::ranges::copy(frame.chrominanceTable, into.subspan(kDqt1At).begin());
  const auto sof0 = into.subspan(kQuantization.size() + (group1 ? 0 : kRestartInterval.size()));
  PutU16(&sof0[kSof0Height], static_cast<u16>(frame.height));
  PutU16(&sof0[kSof0Width], static_cast<u16>(frame.width));
  sof0[kSof0Sampling] = frame.type == 0 ? kSampling422 : kSampling420;
}

}  // namespace sarnevo
