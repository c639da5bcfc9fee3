#pragma once

#include <cstddef>
#include <cstdint>

namespace simcam {

enum class Codec : std::uint8_t { Jpeg, Mpeg4 };

/// Chroma sampling of a JPEG; the value is the type byte of its RTP packets (RFC 2435, 4.1).
enum class Sampling : std::uint8_t { Yuv422 = 0, Yuv420 = 1 };

/// How a firmware line carries a JPEG over RTP.
enum class JpegLayout : std::uint8_t {
  Plain,      ///< after the tables comes the scan
  Commented,  ///< 105 bytes more before the scan, which has a restart marker after every 10 MCUs
};

inline constexpr std::size_t kCommentBytes = 105;
inline constexpr unsigned kRestartInterval = 10;  // MCUs

/// All that decides what an encoder makes; two streams of the same format can share one.
struct StreamFormat {
  Codec codec = Codec::Jpeg;
  std::uint16_t width = 352;
  std::uint16_t height = 288;
  std::uint16_t fps = 25;
  unsigned quality = 60;      ///< JPEG: libjpeg's 1 to 100
  unsigned kilobits = 1500;   ///< MPEG-4: target rate, kbit/s
  unsigned keyInterval = 25;  ///< MPEG-4: frames from one key frame to the next
  Sampling sampling = Sampling::Yuv420;
  JpegLayout layout = JpegLayout::Plain;

  auto operator<=>(const StreamFormat&) const = default;
};

}  // namespace simcam
