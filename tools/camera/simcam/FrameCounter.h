#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

/// The machine-readable frame counter in the simulated camera's pictures.
///
/// Two rows of twenty black or white cells are in the lower left corner. In reading order they are the 32
/// bits of the counter, most significant first, and an 8-bit CRC of them. Each cell covers whole 8x8 blocks
/// of the picture, so that it survives the coarsest quantizer of JPEG and MPEG-4 as a flat grey value; that
/// makes the strip readable at 160x120 and the lowest quality.
///
/// This header needs nothing else, so that a test or another program can read the counter out of any decoded
/// picture: a lost, doubled or torn frame then shows as a gap, a repetition or no number at all.
namespace simcam {

struct CounterStrip {
  static constexpr unsigned kColumns = 20;
  static constexpr unsigned kRows = 2;
  unsigned top;   ///< first line of the strip; it begins at the picture's left edge
  unsigned cell;  ///< edge of one square cell, pixels
};

/// Where the strip is in a picture of that size; nothing when the picture is too small for it.
inline std::optional<CounterStrip> LayOutCounterStrip(unsigned width, unsigned height) {
  const unsigned cell = width >= 640 ? 16U : 8U;
  if (width < CounterStrip::kColumns * cell || height < 4 * cell) {
    return std::nullopt;
  }
  return CounterStrip{(height - CounterStrip::kRows * cell) / 8 * 8, cell};
}

/// CRC-8 (polynomial 0x07). It starts from 0xA5, so that neither an all-black nor an all-white strip passes.
inline std::uint8_t CounterCheck(std::uint32_t counter) {
  unsigned crc = 0xA5;
  for (int shift = 24; shift >= 0; shift -= 8) {
    crc ^= (counter >> shift) & 0xFFU;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80U) != 0 ? ((crc << 1U) ^ 0x07U) & 0xFFU : (crc << 1U) & 0xFFU;
    }
  }
  return static_cast<std::uint8_t>(crc);
}

/// The 40 cells of the strip as bits, the first cell in bit 39. 1 is white.
inline std::uint64_t CounterCells(std::uint32_t counter) {
  return (static_cast<std::uint64_t>(counter) << 8U) | CounterCheck(counter);
}

/// Reads the counter out of a picture's luma (or any grey) plane. Nothing when the picture is too small, a
/// cell is neither dark nor bright, or the check bits don't fit. Limited and full range both read.
inline std::optional<std::uint32_t> ReadFrameCounter(const std::uint8_t* luma, unsigned width, unsigned height,
                                                     std::size_t stride) {
  const std::optional<CounterStrip> strip = LayOutCounterStrip(width, height);
  if (luma == nullptr || !strip) {
    return std::nullopt;
  }
  std::uint64_t cells = 0;
  for (unsigned index = 0; index < CounterStrip::kColumns * CounterStrip::kRows; ++index) {
    // Only the inner half of a cell counts: its edge carries the ringing of its neighbours.
    const unsigned inset = strip->cell / 4;
    const unsigned left = index % CounterStrip::kColumns * strip->cell + inset;
    const unsigned top = strip->top + index / CounterStrip::kColumns * strip->cell + inset;
    const unsigned edge = strip->cell - 2 * inset;
    unsigned sum = 0;
    for (unsigned y = top; y < top + edge; ++y) {
      for (unsigned x = left; x < left + edge; ++x) {
        sum += luma[y * stride + x];
      }
    }
    const unsigned mean = sum / (edge * edge);
    if (mean > 100 && mean < 156) {
      return std::nullopt;
    }
    cells = (cells << 1U) | (mean >= 156 ? 1U : 0U);
  }
  const auto counter = static_cast<std::uint32_t>(cells >> 8U);
  if (CounterCells(counter) != cells) {
    return std::nullopt;
  }
  return counter;
}

}  // namespace simcam
