#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "kolvex/Types.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace kolvex_host {

/// A picture for drawing: rows without gaps, four bytes per pixel in the order blue, green, red, unused.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<sarnevo::u8> pixels;
};

/// The brightness of a decoded picture; valid until the decoder's next operation.
struct Luma {
  const sarnevo::u8* pixels = nullptr;
  unsigned width = 0;
  unsigned height = 0;
  std::size_t stride = 0;  ///< bytes from one row to the next
};

/// What libav's objects of a codec are freed by.
struct FreeCodec {
  void operator()(AVCodecContext* context) const;
  void operator()(AVFrame* frame) const;
  void operator()(AVPacket* packet) const;
  void operator()(SwsContext* scaler) const;
};

/// Decodes the frames of one stream. The driver doesn't decode anything; the host does it to look at what it
/// got. One thread at a time.
class PictureDecoder {
 public:
  explicit PictureDecoder(sarnevo::Codec codec);
  ~PictureDecoder();
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;

  /// Decodes one frame. False when there is no picture in it or the picture is damaged; any complaint of
  /// the decoder counts as damage.
  bool Decode(std::span<const sarnevo::u8> frame);

  /// The latest decoded picture, damaged or not; empty before the first.
  Luma GetLuma() const;
  Picture GetPicture() const;

 private:
  std::unique_ptr<AVCodecContext, FreeCodec> context_;
  std::unique_ptr<AVFrame, FreeCodec> frame_;
  std::unique_ptr<AVPacket, FreeCodec> packet_;
};

/// Makes JPEG files (ITU-T T.81) of decoded pictures, as for a still of an MPEG-4 stream. Fast for pictures of one
/// size. One thread at a time.
class PictureEncoder {
 public:
  PictureEncoder();
  ~PictureEncoder();
  PictureEncoder(const PictureEncoder&) = delete;
  PictureEncoder& operator=(const PictureEncoder&) = delete;

  /// Empty when the picture is.
  std::vector<sarnevo::u8> Encode(const Picture& picture);

 private:
  bool FitTo(const Picture& picture);

  std::unique_ptr<AVCodecContext, FreeCodec> context_;
  std::unique_ptr<AVFrame, FreeCodec> frame_;
  std::unique_ptr<AVPacket, FreeCodec> packet_;
  std::unique_ptr<SwsContext, FreeCodec> scaler_;
};

}  // namespace kolvex_host
