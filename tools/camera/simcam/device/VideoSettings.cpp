#include "simcam/device/VideoSettings.h"

#include <algorithm>
#include <array>

namespace simcam {

namespace {

struct Resolution {
  std::string_view word;
  std::uint16_t width, heightPal, heightNtsc;
};
constexpr std::array kGroup1 = {
    Resolution{"qcif", 176, 144, 112},  // 7 macroblocks high in NTSC
    Resolution{"cif", 352, 288, 240},
    Resolution{"d1", 720, 576, 480},
};
constexpr std::array kGroup2 = {
    Resolution{"sxga", 1280, 1024, 1024}, Resolution{"vga", 640, 480, 480}, Resolution{"qvga", 320, 240, 240},
    Resolution{"qqvga", 160, 120, 120},   Resolution{"d1", 720, 576, 480},  Resolution{"cif", 352, 288, 240},
    Resolution{"qcif", 176, 144, 120},
};

// libjpeg's scale for the five steps of group 2.
constexpr std::array<unsigned, 5> kJpegSteps = {20, 35, 50, 65, 80};

std::span<const Resolution> TableOf(Group group) {
  return group == Group::One ? std::span<const Resolution>(kGroup1) : std::span<const Resolution>(kGroup2);
}

}  // namespace

std::string ResolutionNames(Group group) {
  std::string names;
  for (const Resolution& entry : TableOf(group)) {
    names += (names.empty() ? "" : ", ") + std::string(entry.word);
  }
  return names;
}

PictureSize SizeOf(Group group, std::string_view resolution, bool ntsc) {
  for (const Resolution& entry : TableOf(group)) {
    if (entry.word == resolution) {
      return {entry.width, ntsc ? entry.heightNtsc : entry.heightPal};
    }
  }
  return {0, 0};
}

StreamFormat FormatOf(Group group, const VideoSettings& settings, Sampling sampling) {
  StreamFormat format;
  const PictureSize size = SizeOf(group, settings.resolution, settings.ntsc);
  format.codec = settings.codec;
  format.width = size.width;
  format.height = size.height;
  format.fps = static_cast<std::uint16_t>(std::clamp(settings.fps, 1U, 60U));
  format.sampling = sampling;
  const bool first = group == Group::One;
  format.layout = first ? JpegLayout::Plain : JpegLayout::Commented;
  // What the codec doesn't use stays 0, so that it makes no difference between two streams.
  const bool jpeg = settings.codec == Codec::Jpeg;
  format.quality = !jpeg   ? 0
                   : first ? 105 - 5 * std::clamp(settings.constQuality, 1U, 20U)
                           : kJpegSteps.at(std::clamp(settings.jpegQuality, 1U, 5U) - 1);
  format.kilobits = jpeg ? 0 : first ? settings.targetRate : settings.bitrate;
  format.keyInterval = jpeg    ? 0
                       : first ? std::max(settings.gopSize, 1U)
                               : format.fps * std::max(settings.gopSelect, 1U);
  return format;
}

}  // namespace simcam
