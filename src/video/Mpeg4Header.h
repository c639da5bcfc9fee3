#pragma once

#include <optional>
#include <span>

#include "kolvex/Types.h"

namespace sarnevo {

/// Start codes of ISO/IEC 14496-2, 6.2.1: three bytes 00 00 01, then one of these.
enum class Mpeg4StartCode : u8 {
  VideoObjectLayerFirst = 0x20,
  VideoObjectLayerLast = 0x2F,
  VisualObjectSequence = 0xB0,
  VisualObject = 0xB5,
  VideoObjectPlane = 0xB6,
};

/// Whether @p data begins with the start code.
bool BeginsWith(std::span<const u8> data, Mpeg4StartCode code) noexcept;

/// Size of a picture in pixels.
struct PictureSize {
  u32 width = 0;
  u32 height = 0;
};

/// The picture's size, neither side 0, as the headers of a key frame give it (ISO/IEC 14496-2, 6.2.2 and 6.2.3).
///
/// @p frame begins with the start code of a visual object sequence; a visual object of the type video and a
/// video object layer of rectangular shape come before the first picture. User data and other start
/// codes may come in between. Nothing when one of them is missing, cut, or of another kind, and when a
/// marker bit is 0.
std::optional<PictureSize> ParseMpeg4Header(std::span<const u8> frame) noexcept;

}  // namespace sarnevo
