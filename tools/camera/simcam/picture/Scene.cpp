#include "simcam/picture/Scene.h"

namespace simcam {

namespace {

void DrawSky(cairo_t* c) {
  const Pattern sky(cairo_pattern_create_linear(0, 0, 0, kGround));
  cairo_pattern_add_color_stop_rgb(sky.get(), 0.0, 0.16, 0.38, 0.66);
  cairo_pattern_add_color_stop_rgb(sky.get(), 0.55, 0.52, 0.74, 0.90);
  cairo_pattern_add_color_stop_rgb(sky.get(), 0.85, 0.98, 0.87, 0.72);
  cairo_pattern_add_color_stop_rgb(sky.get(), 1.0, 0.99, 0.80, 0.62);
  cairo_set_source(c, sky.get());
  cairo_rectangle(c, 0, 0, kSceneWidth, kGround);
  cairo_fill(c);

  FillGlow(c, 2130, 640, 420, Rgb(0xFFF2C0, 0.85));
  FillCircle(c, 2130, 640, 62, Rgb(0xFFF8DC));
}

void DrawCloud(cairo_t* c, double x, double y, double size, double alpha) {
  struct Puff {
    double x, y, radius;
  };
  static constexpr Puff kPuffs[] = {
      {-1.6, 0.15, 0.5}, {-0.8, -0.2, 0.75}, {0.1, -0.4, 0.95}, {1.0, -0.1, 0.7}, {1.75, 0.2, 0.45}};
  cairo_push_group(c);
  for (const Puff& puff : kPuffs) {
    FillCircle(c, x + puff.x * size, y + puff.y * size, puff.radius * size, Rgb(0xFFFFFF));
  }
  FillRounded(c, x - 2.1 * size, y, 4.3 * size, 0.62 * size, 0.3 * size, Rgb(0xFFFFFF));
  cairo_pop_group_to_source(c);
  cairo_paint_with_alpha(c, alpha);
}

void DrawHills(cairo_t* c) {
  struct Ridge {
    double base, height, step;
    Colour colour;
    std::uint32_t seed;
  };
  static constexpr Ridge kRidges[] = {{1150, 150, 400, Rgb(0x8FA9C4), 5}, {1230, 110, 290, Rgb(0x7C9A9C), 9}};
  for (const Ridge& ridge : kRidges) {
    Dice dice(ridge.seed);
    SetColour(c, ridge.colour);
    cairo_move_to(c, 0, kGround);
    cairo_line_to(c, 0, ridge.base);
    double y = ridge.base;
    for (unsigned peak = 0; peak * ridge.step < kSceneWidth; ++peak) {
      const double x = peak * ridge.step;
      const double next = ridge.base - dice.Between(0, ridge.height);
      cairo_curve_to(c, x + ridge.step * 0.4, y, x + ridge.step * 0.6, next, x + ridge.step, next);
      y = next;
    }
    cairo_line_to(c, kSceneWidth + ridge.step, kGround);
    cairo_close_path(c);
    cairo_fill(c);
  }
}

}  // namespace

void DrawScene(cairo_t* c) {
  cairo_select_font_face(c, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  DrawSky(c);
  struct Cloud {
    double x, y, size, alpha;
  };
  static constexpr Cloud kClouds[] = {{420, 300, 90, 0.75}, {1020, 560, 62, 0.8},  {1500, 260, 80, 0.7},
                                      {1760, 700, 45, 0.6}, {2480, 400, 95, 0.75}, {2950, 640, 60, 0.65},
                                      {150, 720, 55, 0.6},  {1240, 130, 50, 0.5}};
  for (const Cloud& cloud : kClouds) {
    DrawCloud(c, cloud.x, cloud.y, cloud.size, cloud.alpha);
  }
  DrawHills(c);
  DrawSkyline(c);
  DrawTiltScale(c);
  DrawHouses(c);
  DrawStreet(c);
}

}  // namespace simcam
