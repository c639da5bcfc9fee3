#include "simcam/picture/Overlay.h"

#include <algorithm>
#include <ctime>
#include <vector>

#include "simcam/FrameCounter.h"
#include "simcam/base/Text.h"

namespace simcam {

namespace {

std::string ClockText(std::chrono::system_clock::time_point time) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  return Format("%04d-%02d-%02d %02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(milliseconds % 1000));
}

void DrawLines(cairo_t* c, unsigned width, const View& view, const OverlayText& text) {
  std::vector<std::string> lines = {ClockText(text.time) + Format("  #%u", text.counter), text.caption};
  if (view.showHead) {
    lines.push_back(Format("pan %+.1f  tilt %+.1f  zoom %.1fx", view.pan, view.tilt, view.zoom));
  }
  const double size = std::clamp(width / 24.0, 7.0, 22.0);
  cairo_select_font_face(c, "DejaVu Sans Mono", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(c, size);
  double y = size * 0.35;
  for (const std::string& line : lines) {
    cairo_text_extents_t extents;
    cairo_text_extents(c, line.c_str(), &extents);
    FillRectangle(c, 0, y, extents.x_advance + size, size * 1.25, Rgb(0x101820, 0.62));
    SetColour(c, Rgb(0xFFFFFF));
    cairo_move_to(c, size * 0.5, y + size);
    cairo_show_text(c, line.c_str());
    y += size * 1.25;
  }
}

void DrawOutputLamps(cairo_t* c, unsigned width, unsigned height, std::uint32_t lamps) {
  const double radius = std::max(4.0, width / 55.0);
  const double y = height - radius * 1.8;
  for (unsigned lamp = 0; lamp < 32 && (lamps >> lamp) != 0; ++lamp) {
    const double x = width - radius * (1.8 + 3 * lamp);
    if ((lamps >> lamp & 1U) != 0) {
      FillGlow(c, x, y, radius * 2.4, Rgb(0xFFE070, 0.9));
      FillCircle(c, x, y, radius, Rgb(0xFFF6B0));
      DrawCentred(c, x, y + radius * 0.5, radius * 1.4, Format("%u", lamp + 1).c_str(), Rgb(0x5A4300));
    }
  }
}

void DrawCounterStrip(cairo_t* c, unsigned width, unsigned height, std::uint32_t counter) {
  const std::optional<CounterStrip> strip = LayOutCounterStrip(width, height);
  if (!strip) {
    return;
  }
  const std::uint64_t cells = CounterCells(counter);
  constexpr unsigned kCells = CounterStrip::kColumns * CounterStrip::kRows;
  FillRectangle(c, 0, strip->top, CounterStrip::kColumns * strip->cell, CounterStrip::kRows * strip->cell,
                Rgb(0x000000));
  for (unsigned index = 0; index < kCells; ++index) {
    if ((cells >> (kCells - 1 - index) & 1U) != 0) {
      const unsigned column = index % CounterStrip::kColumns;
      const unsigned row = index / CounterStrip::kColumns;
      FillRectangle(c, column * strip->cell, strip->top + row * strip->cell, strip->cell, strip->cell,
                    Rgb(0xFFFFFF));
    }
  }
}

}  // namespace

void DrawOverlay(cairo_surface_t* surface, unsigned width, unsigned height, const View& view,
                 const OverlayText& text) {
  const Cairo c = MakeCairo(surface);
  DrawLines(c.get(), width, view, text);
  DrawOutputLamps(c.get(), width, height, view.lamps);
  DrawCounterStrip(c.get(), width, height, text.counter);
}

}  // namespace simcam
