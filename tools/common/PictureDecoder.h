#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "kolvex/Types.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

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
  struct Free {
    void operator()(AVCodecContext* context) const;
    void operator()(AVFrame* frame) const;
    void operator()(AVPacket* packet) const;
  };

  std::unique_ptr<AVCodecContext, Free> context_;
  std::unique_ptr<AVFrame, Free> frame_;
  std::unique_ptr<AVPacket, Free> packet_;
};

}  // namespace kolvex_host
