#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "kolvex/Types.h"

namespace sarnevo {

/// Where a camera puts the JPEG scan in the payloads of one frame.
enum class JpegLayout {
  Group1,  ///< after the two quantization tables
  Group2,  ///< 105 bytes further on; the scan has a restart marker after every 10 units
};

/// The joined RTP/JPEG payloads of one frame, seen as what they hold (RFC 2435, 3.1 and 3.1.8):
///
///      0                   1                   2                   3
///     +---------------+---------------+---------------+---------------+
///     | Type-specific |              Fragment Offset                  |
///     +---------------+---------------+---------------+---------------+
///     |      Type     |       Q       |     Width     |     Height    |
///     +---------------+---------------+---------------+---------------+
///     |      MBZ      |   Precision   |             Length            |
///     +---------------+---------------+---------------+---------------+
///     | 64 bytes of table 0, 64 bytes of table 1, group 2: 105 bytes, |
///     | the scan                                                      |
///
/// The cameras always send their tables, whatever Q says. The spans point into the frame.
struct JpegFrame {
  u8 type = 0;                           ///< 0: 4:2:2 sampling, anything else: 4:2:0
  u32 width = 0;                         ///< pixels
  u32 height = 0;                        ///< pixels
  std::span<const u8> luminanceTable;    ///< 64 bytes
  std::span<const u8> chrominanceTable;  ///< 64 bytes
  std::span<const u8> scan;              ///< never empty
};

/// Nothing when the frame is too short to hold a scan.
std::optional<JpegFrame> ParseJpegFrame(std::span<const u8> frame, JpegLayout layout) noexcept;

/// Where the scan begins in a frame's joined payloads.
constexpr std::size_t JpegScanAt(JpegLayout layout) noexcept {
  return layout == JpegLayout::Group1 ? 140 : 245;
}

/// Bytes that WriteJpegHeader writes.
constexpr std::size_t JpegHeaderSize(JpegLayout layout) noexcept {
  return layout == JpegLayout::Group1 ? 605 : 611;
}

/// Writes all that comes before the scan in a JPEG file (ITU-T T.81, annex B): SOI, two DQT, for
/// group 2 DRI, SOF0, the four Huffman tables of annex K.3, SOS. @p into has room for JpegHeaderSize bytes.
void WriteJpegHeader(std::span<u8> into, const JpegFrame& frame, JpegLayout layout) noexcept;

}  // namespace sarnevo
