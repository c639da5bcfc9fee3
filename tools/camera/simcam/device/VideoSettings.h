#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "simcam/codec/StreamFormat.h"
#include "simcam/device/Models.h"

namespace simcam {

/// What a camera is configured to stream, in its CGI's own terms.
struct VideoSettings {
  Codec codec = Codec::Jpeg;
  bool ntsc = false;
  std::string resolution = "cif";  ///< the CGI's word
  unsigned fps = 25;
  unsigned constQuality = 9;   ///< group 1, JPEG: quantizer, 1 the best to 31
  unsigned targetRate = 1500;  ///< group 1, MPEG-4: kbit/s
  unsigned peakRate = 3000;    ///< group 1, MPEG-4: kbit/s
  unsigned gopSize = 25;       ///< group 1, MPEG-4: frames
  unsigned jpegQuality = 3;    ///< group 2, JPEG: 1 to 5, the best
  unsigned bitrate = 320;      ///< group 2, MPEG-4: kbit/s
  unsigned gopSelect = 1;      ///< group 2, MPEG-4: seconds from one key frame to the next

  bool operator==(const VideoSettings&) const = default;
};

struct PictureSize {
  std::uint16_t width, height;
};

/// The words of a group's CGI for picture sizes, for people.
std::string ResolutionNames(Group group);

/// The picture size of a resolution's word; 0 by 0 when the group doesn't know the word.
PictureSize SizeOf(Group group, std::string_view resolution, bool ntsc);

/// The stream that these settings make.
StreamFormat FormatOf(Group group, const VideoSettings& settings, Sampling sampling);

}  // namespace simcam
