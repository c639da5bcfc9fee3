#pragma once

#include <array>

#include "simcam/picture/Canvas.h"
#include "simcam/picture/View.h"

namespace simcam {

/// A rectangle of the scene, in scene pixels.
struct SceneWindow {
  double x, y, width, height;
};

/// What a view shows in a picture of that size. Views past the scene's edge are held at the edge.
SceneWindow WindowOf(const View& view, unsigned width, unsigned height);

/// The scene as pixels, drawn once per process and shared by all pictures, in a few sizes so that scaling
/// down stays cheap and free of flicker. DrawingLock is held for every call.
class SceneRaster {
 public:
  static const SceneRaster& Shared();

  /// Paints the window over the whole of the target surface, out of focus and exposed as the view says.
  void Paint(cairo_surface_t* target, unsigned width, unsigned height, const View& view) const;

 private:
  SceneRaster();
  static constexpr unsigned kLevels = 4;
  std::array<Surface, kLevels> levels_;  // each half the size of the one before
};

}  // namespace simcam
