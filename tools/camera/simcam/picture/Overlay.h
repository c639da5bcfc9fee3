#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "simcam/picture/Canvas.h"
#include "simcam/picture/View.h"

namespace simcam {

/// What is written over the scene in every frame.
struct OverlayText {
  std::string caption;  ///< which camera this is
  std::uint32_t counter;
  std::chrono::system_clock::time_point time;
};

/// Draws clock, counter, caption, the lamps of the outputs and the machine-readable strip. DrawingLock is
/// held.
void DrawOverlay(cairo_surface_t* surface, unsigned width, unsigned height, const View& view,
                 const OverlayText& text);

}  // namespace simcam
