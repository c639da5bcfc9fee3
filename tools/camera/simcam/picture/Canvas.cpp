#include "simcam/picture/Canvas.h"

#include <numbers>

namespace simcam {

std::mutex& DrawingLock() {
  static std::mutex lock;
  return lock;
}

Surface MakeSurface(unsigned width, unsigned height) {
  return Surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
}

Cairo MakeCairo(cairo_surface_t* surface) { return Cairo(cairo_create(surface)); }

void SetColour(cairo_t* c, const Colour& colour) {
  cairo_set_source_rgba(c, colour.red, colour.green, colour.blue, colour.alpha);
}

void FillRectangle(cairo_t* c, double x, double y, double width, double height, const Colour& colour) {
  SetColour(c, colour);
  cairo_rectangle(c, x, y, width, height);
  cairo_fill(c);
}

void FillRounded(cairo_t* c, double x, double y, double width, double height, double radius,
                 const Colour& colour) {
  constexpr double kQuarter = std::numbers::pi / 2;
  SetColour(c, colour);
  cairo_new_sub_path(c);
  cairo_arc(c, x + width - radius, y + radius, radius, -kQuarter, 0);
  cairo_arc(c, x + width - radius, y + height - radius, radius, 0, kQuarter);
  cairo_arc(c, x + radius, y + height - radius, radius, kQuarter, 2 * kQuarter);
  cairo_arc(c, x + radius, y + radius, radius, 2 * kQuarter, 3 * kQuarter);
  cairo_close_path(c);
  cairo_fill(c);
}

void FillCircle(cairo_t* c, double x, double y, double radius, const Colour& colour) {
  SetColour(c, colour);
  cairo_new_sub_path(c);
  cairo_arc(c, x, y, radius, 0, 2 * std::numbers::pi);
  cairo_fill(c);
}

void FillGlow(cairo_t* c, double x, double y, double radius, const Colour& colour) {
  const Pattern glow(cairo_pattern_create_radial(x, y, 0, x, y, radius));
  cairo_pattern_add_color_stop_rgba(glow.get(), 0, colour.red, colour.green, colour.blue, colour.alpha);
  cairo_pattern_add_color_stop_rgba(glow.get(), 1, colour.red, colour.green, colour.blue, 0);
  cairo_set_source(c, glow.get());
  cairo_new_sub_path(c);
  cairo_arc(c, x, y, radius, 0, 2 * std::numbers::pi);
  cairo_fill(c);
}

void DrawCentred(cairo_t* c, double x, double y, double size, const char* text, const Colour& colour) {
  cairo_set_font_size(c, size);
  cairo_text_extents_t extents;
  cairo_text_extents(c, text, &extents);
  SetColour(c, colour);
  cairo_move_to(c, x - extents.x_bearing - extents.width / 2, y);
  cairo_show_text(c, text);
}

}  // namespace simcam
