#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "simcam/codec/StreamFormat.h"
#include "simcam/picture/Picture.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace simcam {

/// An MPEG-4 Visual elementary stream (ISO/IEC 14496-2). Every key frame begins with the visual object
/// sequence start code, the visual object and the video object layer, so that a receiver may enter there;
/// every other frame begins with its VOP. There are no B frames: a frame that goes in comes out at once.
/// One thread at a time.
class Mpeg4Encoder {
 public:
  explicit Mpeg4Encoder(const StreamFormat& format);
  ~Mpeg4Encoder();
  Mpeg4Encoder(const Mpeg4Encoder&) = delete;
  Mpeg4Encoder& operator=(const Mpeg4Encoder&) = delete;

  struct Frame {
    std::vector<std::uint8_t> bytes;  ///< empty when the encoder failed
    bool key = false;
  };
  Frame Encode(const Pixels& pixels, bool forceKey);

 private:
  struct Free {
    void operator()(AVCodecContext* context) const;
    void operator()(AVFrame* frame) const;
    void operator()(AVPacket* packet) const;
    void operator()(SwsContext* scaler) const;
  };
  std::unique_ptr<AVCodecContext, Free> context_;  // null when it couldn't be opened
  std::unique_ptr<AVFrame, Free> frame_;
  std::unique_ptr<AVPacket, Free> packet_;
  std::unique_ptr<SwsContext, Free> scaler_;
  std::int64_t next_ = 0;  // presentation time, in frames
};

}  // namespace simcam
