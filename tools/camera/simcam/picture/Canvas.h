#pragma once

#include <cairo/cairo.h>

#include <cstdint>
#include <memory>
#include <mutex>

namespace simcam {

struct FreeSurface {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct FreeCairo {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
};
struct FreePattern {
  void operator()(cairo_pattern_t* pattern) const { cairo_pattern_destroy(pattern); }
};
using Surface = std::unique_ptr<cairo_surface_t, FreeSurface>;
using Cairo = std::unique_ptr<cairo_t, FreeCairo>;
using Pattern = std::unique_ptr<cairo_pattern_t, FreePattern>;

struct Colour {
  double red, green, blue;
  double alpha = 1.0;
};

/// From 0xRRGGBB.
constexpr Colour Rgb(std::uint32_t value, double alpha = 1.0) {
  return {((value >> 16U) & 0xFFU) / 255.0, ((value >> 8U) & 0xFFU) / 255.0, (value & 0xFFU) / 255.0, alpha};
}

/// Held around every call into cairo: its font and glyph caches are shared by the encoder threads, and the
/// little that is drawn per frame isn't worth finer locks.
std::mutex& DrawingLock();

/// A 32-bit surface; its bytes are B, G, R and an unused one.
Surface MakeSurface(unsigned width, unsigned height);
Cairo MakeCairo(cairo_surface_t* surface);

void SetColour(cairo_t* c, const Colour& colour);
void FillRectangle(cairo_t* c, double x, double y, double width, double height, const Colour& colour);
void FillRounded(cairo_t* c, double x, double y, double width, double height, double radius,
                 const Colour& colour);
void FillCircle(cairo_t* c, double x, double y, double radius, const Colour& colour);
void FillGlow(cairo_t* c, double x, double y, double radius, const Colour& colour);

/// A text whose middle is at x and whose baseline is at y.
void DrawCentred(cairo_t* c, double x, double y, double size, const char* text, const Colour& colour);

/// The drawing's own small generator, so that the scene looks the same everywhere.
class Dice {
 public:
  explicit Dice(std::uint32_t seed) : state_(seed) {}
  double Between(double low, double high) {
    state_ = state_ * 1664525U + 1013904223U;
    return low + (high - low) * ((state_ >> 8U) / 16777216.0);
  }

 private:
  std::uint32_t state_;
};

}  // namespace simcam
