#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simcam/codec/StreamFormat.h"
#include "simcam/picture/Picture.h"

namespace simcam {

/// A baseline JPEG and the places in it that RTP carries.
struct EncodedJpeg {
  std::vector<std::uint8_t> file;
  std::array<std::uint8_t, 64> luma{};    ///< quantization table 0 in zigzag order, as in its DQT segment
  std::array<std::uint8_t, 64> chroma{};  ///< quantization table 1
  std::size_t scanOffset = 0;             ///< first byte after the SOS segment

  /// The entropy-coded data with the EOI marker after it, which a receiver passes on.
  std::span<const std::uint8_t> scan() const { return std::span(file).subspan(scanOffset); }
};

/// Encodes with the standard Huffman tables (ITU-T T.81, annex K.3), which RTP receivers assume. Nothing on
/// failure, which is only a lack of memory.
std::optional<EncodedJpeg> EncodeJpeg(const Pixels& pixels, unsigned quality, Sampling sampling,
                                      unsigned restartInterval);

}  // namespace simcam
