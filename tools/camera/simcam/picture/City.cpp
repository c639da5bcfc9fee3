#include "simcam/base/Text.h"
#include "simcam/picture/Scene.h"

namespace simcam {

namespace {

struct House {
  double x, width, height;
  Colour wall, trim;
  unsigned columns, rows;
  enum Roof { Flat, Gable, Terrace } roof;
};

// The numbers on the houses are their places in this table, so that a view can be named by what it shows.
constexpr House kHouses[] = {
    {20, 230, 430, Rgb(0xC97B5A), Rgb(0xF3E3D0), 4, 6, House::Flat},
    {268, 200, 330, Rgb(0xE3C878), Rgb(0xFFF6DC), 3, 4, House::Gable},
    {486, 260, 560, Rgb(0x8C9DB0), Rgb(0xDDE5EC), 5, 8, House::Terrace},
    {768, 190, 300, Rgb(0xB65D52), Rgb(0xF5DDCF), 3, 4, House::Gable},
    {976, 240, 470, Rgb(0xD8B894), Rgb(0xFBF1E2), 4, 6, House::Flat},
    {1234, 215, 350, Rgb(0x7FA08A), Rgb(0xE4F0E4), 3, 4, House::Gable},
    {1640, 250, 610, Rgb(0x6F8296), Rgb(0xD4DEE8), 5, 9, House::Terrace},
    {1908, 200, 340, Rgb(0xE0A070), Rgb(0xFFEBD6), 3, 4, House::Gable},
    {2126, 245, 440, Rgb(0xA9655C), Rgb(0xF2D9D0), 4, 6, House::Flat},
    {2390, 205, 320, Rgb(0x93A8C8), Rgb(0xE8EFF8), 3, 4, House::Gable},
    {2612, 255, 540, Rgb(0xC9B27C), Rgb(0xF8F0DA), 5, 7, House::Terrace},
    {2886, 270, 400, Rgb(0x9C7A94), Rgb(0xEEDFEA), 4, 5, House::Flat},
};

void DrawWindows(cairo_t* c, const House& house, Dice& dice) {
  const double top = kGround - house.height + 60;
  const double stepX = house.width / house.columns;
  const double stepY = (house.height - 150) / house.rows;
  for (unsigned row = 0; row < house.rows; ++row) {
    for (unsigned column = 0; column < house.columns; ++column) {
      const double x = house.x + (column + 0.22) * stepX;
      const double y = top + row * stepY;
      FillRectangle(c, x - 3, y - 3, stepX * 0.56 + 6, stepY * 0.62 + 6, house.trim);
      const bool lit = dice.Between(0, 1) > 0.72;
      FillRectangle(c, x, y, stepX * 0.56, stepY * 0.62, lit ? Rgb(0xFFDE8A) : Rgb(0x3D566E));
      FillRectangle(c, x + stepX * 0.26, y, 3, stepY * 0.62, house.trim);
      if (!lit) {
        FillRectangle(c, x, y, stepX * 0.12, stepY * 0.62, Rgb(0xFFFFFF, 0.14));
      }
    }
  }
}

void DrawRoof(cairo_t* c, const House& house) {
  const double top = kGround - house.height;
  switch (house.roof) {
    case House::Flat:
      FillRectangle(c, house.x - 8, top - 16, house.width + 16, 22, house.trim);
      break;
    case House::Gable:
      SetColour(c, Rgb(0x7A3B30));
      cairo_move_to(c, house.x - 16, top + 4);
      cairo_line_to(c, house.x + house.width / 2, top - 96);
      cairo_line_to(c, house.x + house.width + 16, top + 4);
      cairo_close_path(c);
      cairo_fill(c);
      FillRectangle(c, house.x + house.width * 0.72, top - 92, 26, 62, Rgb(0x8E4A3C));
      break;
    case House::Terrace:
      FillRectangle(c, house.x + house.width * 0.2, top - 44, house.width * 0.6, 50, house.wall);
      FillRectangle(c, house.x + house.width * 0.2 - 6, top - 54, house.width * 0.6 + 12, 12, house.trim);
      FillRectangle(c, house.x - 6, top - 8, house.width + 12, 12, house.trim);
      FillRectangle(c, house.x + house.width * 0.5 - 2, top - 130, 4, 80, Rgb(0x4A545E));
      break;
  }
}

void DrawHouse(cairo_t* c, const House& house, unsigned number, Dice& dice) {
  const double top = kGround - house.height;
  FillRectangle(c, house.x, top, house.width, house.height, house.wall);
  FillRectangle(c, house.x + house.width * 0.86, top, house.width * 0.14, house.height, Rgb(0x000000, 0.12));
  DrawRoof(c, house);
  DrawWindows(c, house, dice);
  const double middle = house.x + house.width / 2;
  FillRectangle(c, house.x, kGround - 82, house.width, 6, house.trim);
  FillRounded(c, middle - 24, kGround - 66, 48, 70, 6, Rgb(0x4A3427));
  FillCircle(c, middle + 14, kGround - 30, 4, Rgb(0xE8C15A));
  FillRounded(c, house.x + 14, kGround - 68, 60, 50, 6, Rgb(0x1F3A5F));
  DrawCentred(c, house.x + 44, kGround - 29, 38, Format("%u", number).c_str(), Rgb(0xFFFFFF));
}

}  // namespace

void DrawSkyline(cairo_t* c) {
  Dice dice(77);
  double x = -20;
  while (x < kSceneWidth) {
    const double width = dice.Between(70, 150);
    const double height = dice.Between(240, 620);
    const double shade = dice.Between(0.58, 0.68);
    FillRectangle(c, x, kGround - height, width, height, {shade * 0.95, shade * 1.03, shade * 1.14});
    for (unsigned row = 0; 24 + 30.0 * row < height - 250; ++row) {
      for (unsigned column = 0; 12 + 24.0 * column < width - 16; ++column) {
        FillRectangle(c, x + 12 + 24.0 * column, kGround - height + 24 + 30.0 * row, 11, 15,
                      {shade * 1.12, shade * 1.18, shade * 1.24});
      }
    }
    x += width + dice.Between(-10, 30);
  }
  // Haze lifts the near houses off the far ones.
  const Pattern haze(cairo_pattern_create_linear(0, kGround - 650, 0, kGround));
  cairo_pattern_add_color_stop_rgba(haze.get(), 0, 1, 0.93, 0.84, 0.0);
  cairo_pattern_add_color_stop_rgba(haze.get(), 1, 1, 0.90, 0.78, 0.75);
  cairo_set_source(c, haze.get());
  cairo_rectangle(c, 0, kGround - 650, kSceneWidth, 650);
  cairo_fill(c);
}

void DrawHouses(cairo_t* c) {
  Dice dice(4711);
  unsigned number = 0;
  for (const House& house : kHouses) {
    DrawHouse(c, house, ++number, dice);
  }
}

}  // namespace simcam
