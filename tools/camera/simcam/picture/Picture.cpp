#include "simcam/picture/Picture.h"

#include <cmath>
#include <cstring>

#include "simcam/picture/Scene.h"
#include "simcam/picture/SceneRaster.h"

namespace simcam {

Picture::Picture(unsigned width, unsigned height) : width_(width), height_(height) {
  const std::lock_guard<std::mutex> guard(DrawingLock());
  background_ = MakeSurface(width, height);
  surface_ = MakeSurface(width, height);
}

void Picture::PaintBackground(const View& view) {
  View behind = view;
  behind.lamps = 0;
  behind.showHead = false;
  if (ready_ && behind == painted_) {
    return;
  }
  SceneRaster::Shared().Paint(background_.get(), width_, height_, behind);
  cairo_surface_flush(background_.get());
  painted_ = behind;
  ready_ = true;
}

Pixels Picture::Draw(const View& view, const OverlayText& text) {
  const std::lock_guard<std::mutex> guard(DrawingLock());
  PaintBackground(view);
  cairo_surface_flush(surface_.get());
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface_.get()));
  std::memcpy(cairo_image_surface_get_data(surface_.get()), cairo_image_surface_get_data(background_.get()),
              stride * height_);
  cairo_surface_mark_dirty(surface_.get());

  const SceneWindow window = WindowOf(view, width_, height_);
  const Cairo c = MakeCairo(surface_.get());
  cairo_scale(c.get(), width_ / window.width, height_ / window.height);
  cairo_translate(c.get(), -window.x, -window.y);
  const double seconds = std::chrono::duration<double>(text.time.time_since_epoch()).count();
  DrawActors(c.get(), std::fmod(seconds, 86'400.0), view.lamps);

  DrawOverlay(surface_.get(), width_, height_, view, text);
  cairo_surface_flush(surface_.get());
  return {cairo_image_surface_get_data(surface_.get()), width_, height_, stride};
}

}  // namespace simcam
