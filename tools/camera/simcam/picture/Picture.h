#pragma once

#include <cstddef>
#include <cstdint>

#include "simcam/picture/Canvas.h"
#include "simcam/picture/Overlay.h"
#include "simcam/picture/View.h"

namespace simcam {

/// The pixels of a finished picture: 4 bytes each, B, G, R, unused. They belong to the Picture.
struct Pixels {
  const std::uint8_t* data;
  unsigned width, height;
  std::size_t stride;
};

/// Draws the pictures of one stream. The scene behind the text is painted anew only when the view has
/// changed, so that a camera at rest costs a copy, a few cars and the text. One thread at a time.
class Picture {
 public:
  Picture(unsigned width, unsigned height);

  Pixels Draw(const View& view, const OverlayText& text);

 private:
  void PaintBackground(const View& view);

  const unsigned width_, height_;
  Surface background_, surface_;
  View painted_;  // the view that background_ shows
  bool ready_ = false;
};

}  // namespace simcam
