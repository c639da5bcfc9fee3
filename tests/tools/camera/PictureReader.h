#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CameraClient.h"

struct AVCodecContext;

namespace simcam_test {

/// A decoded picture's luma.
struct Luma {
  unsigned width = 0, height = 0;
  std::vector<std::uint8_t> pixels;
  std::string complaint;  ///< what the decoder had to say; empty when all was well
};

/// A JPEG file made of the RTP payloads of one frame: the place of each part is that of the wire format, the
/// Huffman tables come from libjpeg. Group 2 has 105 bytes before the scan and restarts after 10 MCUs.
std::vector<std::uint8_t> JpegOf(const std::vector<Datagram>& frame, int group);
Luma DecodeJpeg(const std::vector<std::uint8_t>& file);

/// Decodes an MPEG-4 elementary stream, frame by frame from a key frame on.
class Mpeg4Reader {
 public:
  Mpeg4Reader();
  Luma Decode(const std::vector<std::uint8_t>& frame);

 private:
  struct Free {
    void operator()(AVCodecContext* context) const;
  };
  std::unique_ptr<AVCodecContext, Free> context_;
};

std::vector<std::uint8_t> Joined(const std::vector<Datagram>& frame);  ///< payloads end to end

}  // namespace simcam_test
