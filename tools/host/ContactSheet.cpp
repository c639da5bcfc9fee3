#include "ContactSheet.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "Failure.h"
#include "Output.h"

namespace kolvex_host {

namespace {

/// All lengths in pixels. Pictures have the shape 5:4, as PAL in square pixels.
struct Layout {
  double pictureWidth;
  double pictureHeight;
  double margin;
  double titleSize;
  double lineSize;
  double lineStep;
};
constexpr std::size_t kFew = 4;
constexpr Layout kLarge{560, 448, 24, 20, 15, 21};  // for few pictures
constexpr Layout kSmall{290, 232, 14, 13.5, 10.5, 15};

struct Rgb {
  double red, green, blue;
};
constexpr Rgb kPaper{0.96, 0.96, 0.95};
constexpr Rgb kInk{0.10, 0.12, 0.14};
constexpr Rgb kFaded{0.36, 0.39, 0.42};
constexpr Rgb kDark{0.17, 0.18, 0.20};
constexpr Rgb kOnDark{0.70, 0.72, 0.74};

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

void Colour(cairo_t* context, Rgb colour) {
  cairo_set_source_rgb(context, colour.red, colour.green, colour.blue);
}

/// @p y is the text's base line.
void Text(cairo_t* context, double x, double y, double size, bool bold, const std::string& text) {
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, size);
  cairo_move_to(context, x, y);
  cairo_show_text(context, text.c_str());
}

/// Fits the picture into the field, whole and undistorted, and fills the rest with darkness.
void DrawPicture(cairo_t* context, const Layout& layout, double x, double y, const Picture& picture) {
  Colour(context, kDark);
  cairo_rectangle(context, x, y, layout.pictureWidth, layout.pictureHeight);
  cairo_fill(context);
  if (picture.pixels.empty()) {
    Colour(context, kOnDark);
    Text(context, x + layout.margin, y + layout.pictureHeight / 2, layout.titleSize, false, "no picture");
    return;
  }
  // The image only reads the pixels.
  auto* const pixels = const_cast<sarnevo::u8*>(picture.pixels.data());
  const Surface image(cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_RGB24, picture.width,
                                                          picture.height, picture.width * 4),
                      &cairo_surface_destroy);
  const double scale = std::min(layout.pictureWidth / picture.width, layout.pictureHeight / picture.height);
  cairo_save(context);
  cairo_translate(context, x + (layout.pictureWidth - scale * picture.width) / 2,
                  y + (layout.pictureHeight - scale * picture.height) / 2);
  cairo_scale(context, scale, scale);
  cairo_set_source_surface(context, image.get(), 0, 0);
  cairo_pattern_set_filter(cairo_get_source(context), CAIRO_FILTER_GOOD);
  cairo_pattern_set_extend(cairo_get_source(context), CAIRO_EXTEND_PAD);  // no blur into nothing at the edges
  cairo_rectangle(context, 0, 0, picture.width, picture.height);
  cairo_fill(context);
  cairo_restore(context);
}

/// Height of the text beneath a picture.
double CaptionHeight(const Layout& layout, const std::vector<SheetEntry>& entries) {
  std::size_t lines = 0;
  for (const SheetEntry& entry : entries) {
    lines = std::max(lines, entry.lines.size());
  }
  return layout.titleSize + 12 + static_cast<double>(lines) * layout.lineStep;
}

}  // namespace

void WriteContactSheet(const std::filesystem::path& path, const std::vector<SheetEntry>& entries) {
  const Layout& layout = entries.size() <= kFew ? kLarge : kSmall;
  const auto columns =
      static_cast<std::size_t>(std::max(1.0, std::ceil(std::sqrt(static_cast<double>(entries.size())))));
  const std::size_t rows = (entries.size() + columns - 1) / columns;
  const double cellWidth = layout.pictureWidth + layout.margin;
  const double cellHeight = layout.pictureHeight + CaptionHeight(layout, entries) + layout.margin;

  const Surface surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                 static_cast<int>(static_cast<double>(columns) * cellWidth + layout.margin),
                                 static_cast<int>(static_cast<double>(rows) * cellHeight + layout.margin)),
      &cairo_surface_destroy);
  const Context context(cairo_create(surface.get()), &cairo_destroy);
  Colour(context.get(), kPaper);
  cairo_paint(context.get());

  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::size_t row = i / columns;
    const std::size_t column = i % columns;
    const double x = layout.margin + static_cast<double>(column) * cellWidth;
    double y = layout.margin + static_cast<double>(row) * cellHeight;
    DrawPicture(context.get(), layout, x, y, entries[i].picture);
    y += layout.pictureHeight + layout.titleSize + 6;
    Colour(context.get(), kInk);
    Text(context.get(), x, y, layout.titleSize, true, entries[i].title);
    Colour(context.get(), kFaded);
    for (const std::string& line : entries[i].lines) {
      y += layout.lineStep;
      Text(context.get(), x, y, layout.lineSize, false, line);
    }
  }

  std::vector<sarnevo::u8> png;
  const auto take = [](void* into, const unsigned char* bytes, unsigned count) {
    auto& all = *static_cast<std::vector<sarnevo::u8>*>(into);
    all.insert(all.end(), bytes, bytes + count);
    return CAIRO_STATUS_SUCCESS;
  };
  if (const cairo_status_t status = cairo_surface_write_to_png_stream(surface.get(), take, &png);
      status != CAIRO_STATUS_SUCCESS) {
    throw Failure(ExitCode::Output, "The contact sheet " + path.string() +
                                        " can't be drawn: " + cairo_status_to_string(status) + ".");
  }
  OutputFile::WriteWhole(path, png);
}

}  // namespace kolvex_host
