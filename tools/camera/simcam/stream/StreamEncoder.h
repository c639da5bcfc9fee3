#pragma once

#include <memory>
#include <string>

#include "simcam/codec/Mpeg4Encoder.h"
#include "simcam/codec/Packetizer.h"
#include "simcam/codec/StreamFormat.h"
#include "simcam/picture/Picture.h"
#include "simcam/picture/View.h"

namespace simcam {

/// Draws, encodes and packetizes the frames of one stream. One thread at a time.
class StreamEncoder {
 public:
  StreamEncoder(const StreamFormat& format, std::string caption);

  /// The next frame; null when the encoder failed.
  std::shared_ptr<PacketizedFrame> Next(const View& view, std::uint32_t counter, bool forceKey);

 private:
  bool AddJpeg(const Pixels& pixels, PacketizedFrame& frame);

  const StreamFormat format_;
  const std::string caption_;
  Picture picture_;
  std::unique_ptr<Mpeg4Encoder> mpeg4_;  // null for JPEG
};

}  // namespace simcam
