#include "simcam/picture/SceneRaster.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "simcam/picture/Scene.h"

namespace simcam {

namespace {

void PaintScaled(cairo_t* c, cairo_surface_t* source, double scaleX, double scaleY, double x, double y) {
  cairo_save(c);
  cairo_scale(c, scaleX, scaleY);
  cairo_set_source_surface(c, source, -x, -y);
  cairo_pattern_set_filter(cairo_get_source(c), CAIRO_FILTER_BILINEAR);
  cairo_pattern_set_extend(cairo_get_source(c), CAIRO_EXTEND_PAD);
  cairo_paint(c);
  cairo_restore(c);
}

void Blur(cairo_surface_t* surface, unsigned width, unsigned height, double blur) {
  const double factor = 1 + blur * 18;
  const auto smallWidth = static_cast<unsigned>(std::max(4.0, width / factor));
  const auto smallHeight = static_cast<unsigned>(std::max(4.0, height / factor));
  const Surface small = MakeSurface(smallWidth, smallHeight);
  const double scaleX = static_cast<double>(smallWidth) / width;
  const double scaleY = static_cast<double>(smallHeight) / height;
  const Cairo down = MakeCairo(small.get());
  cairo_scale(down.get(), scaleX, scaleY);
  cairo_set_source_surface(down.get(), surface, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(down.get()), CAIRO_FILTER_GOOD);
  cairo_paint(down.get());
  const Cairo up = MakeCairo(surface);
  PaintScaled(up.get(), small.get(), 1 / scaleX, 1 / scaleY, 0, 0);
}

void Expose(cairo_surface_t* surface, double stops) {
  std::array<std::uint8_t, 256> curve{};
  for (std::size_t i = 0; i < curve.size(); ++i) {
    curve[i] = static_cast<std::uint8_t>(std::min(255.0, static_cast<double>(i) * std::exp2(stops)));
  }
  cairo_surface_flush(surface);
  std::uint8_t* const pixels = cairo_image_surface_get_data(surface);
  const int bytes = cairo_image_surface_get_stride(surface) * cairo_image_surface_get_height(surface);
  std::transform(pixels, pixels + bytes, pixels, [&curve](std::uint8_t value) { return curve[value]; });
  cairo_surface_mark_dirty(surface);
}

}  // namespace

SceneWindow WindowOf(const View& view, unsigned width, unsigned height) {
  SceneWindow window{};
  window.width = kHomeViewWidth / std::max(1.0, view.zoom);
  window.height = window.width * height / width;
  const double x = kSceneCentreX + view.pan * kPixelsPerDegree - window.width / 2;
  const double y = kSceneCentreY - view.tilt * kPixelsPerDegree - window.height / 2;
  window.x = std::clamp(x, 0.0, kSceneWidth - window.width);
  window.y = std::clamp(y, 0.0, kSceneHeight - window.height);
  return window;
}

const SceneRaster& SceneRaster::Shared() {
  static const SceneRaster raster;
  return raster;
}

SceneRaster::SceneRaster() {
  unsigned width = static_cast<unsigned>(kSceneWidth);
  unsigned height = static_cast<unsigned>(kSceneHeight);
  levels_[0] = MakeSurface(width, height);
  DrawScene(MakeCairo(levels_[0].get()).get());
  for (unsigned level = 1; level < kLevels; ++level) {
    width /= 2;
    height /= 2;
    levels_[level] = MakeSurface(width, height);
    PaintScaled(MakeCairo(levels_[level].get()).get(), levels_[level - 1].get(), 0.5, 0.5, 0, 0);
  }
}

void SceneRaster::Paint(cairo_surface_t* target, unsigned width, unsigned height, const View& view) const {
  const SceneWindow window = WindowOf(view, width, height);
  unsigned level = 0;
  double shrink = 1;
  while (level + 1 < kLevels && window.width / shrink / 2 >= width) {
    ++level;
    shrink *= 2;
  }
  const Cairo c = MakeCairo(target);
  PaintScaled(c.get(), levels_[level].get(), width * shrink / window.width, height * shrink / window.height,
              window.x / shrink, window.y / shrink);
  if (view.blur > 0.01) {
    Blur(target, width, height, view.blur);
  }
  if (std::abs(view.exposure) > 0.01) {
    Expose(target, view.exposure);
  }
}

}  // namespace simcam
