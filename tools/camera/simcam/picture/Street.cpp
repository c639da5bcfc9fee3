#include <cmath>

#include "simcam/base/Text.h"
#include "simcam/picture/Scene.h"

namespace simcam {

namespace {

constexpr double kLampHeight = 300;

double LampX(unsigned index) { return 860 + 210.0 * index; }

void DrawTree(cairo_t* c, double x, double size, Dice& dice) {
  FillRectangle(c, x - 7, kGround - size * 0.6, 14, size * 0.6 + 24, Rgb(0x5B4030));
  for (int i = 0; i < 14; ++i) {
    const double angle = dice.Between(0, 6.28);
    const double away = dice.Between(0, size * 0.42);
    const double green = dice.Between(0.40, 0.62);
    FillCircle(c, x + away * std::cos(angle), kGround - size * 0.85 + away * std::sin(angle) * 0.8, size * 0.26,
               {green * 0.55, green, green * 0.42});
  }
}

void DrawLampPost(cairo_t* c, unsigned index) {
  const double x = LampX(index);
  const double top = kKerb - kLampHeight;
  FillRectangle(c, x - 4, top, 8, kLampHeight, Rgb(0x2E363E));
  FillRectangle(c, x - 12, kKerb - 14, 24, 14, Rgb(0x2E363E));
  FillRounded(c, x - 22, top - 8, 44, 12, 5, Rgb(0x2E363E));
  FillRounded(c, x - 16, top + 4, 32, 22, 8, Rgb(0xD9DEE2));
}

// One tick a degree and a number every five, on a rail along the pavement.
void DrawPanScale(cairo_t* c) {
  constexpr double kRail = kGround + 8;
  FillRectangle(c, 0, kRail, kSceneWidth, 44, Rgb(0x20303C));
  for (int degree = -60; degree <= 60; ++degree) {
    const double x = kSceneCentreX + degree * kPixelsPerDegree;
    const bool major = degree % 5 == 0;
    FillRectangle(c, x - (major ? 2 : 1), kRail, major ? 4 : 2, major ? 13 : 8, Rgb(0xFFFFFF));
    if (major) {
      DrawCentred(c, x, kRail + 39, 26, Format(degree > 0 ? "+%d" : "%d", degree).c_str(),
                  degree == 0 ? Rgb(0xFFD24A) : Rgb(0xFFFFFF));
    }
  }
}

struct Car {
  double lane;    // y of the wheels
  double speed;   // scene pixels a second, negative to the left
  double offset;  // where it is at second 0
  double length;
  Colour body;
};

void DrawCar(cairo_t* c, const Car& car, double seconds) {
  constexpr double kLoop = kSceneWidth + 600;
  double x = std::fmod(car.offset + car.speed * seconds, kLoop);
  x += x < 0 ? kLoop - 300 : -300;
  cairo_save(c);
  cairo_translate(c, x, car.lane);
  if (car.speed < 0) {
    cairo_scale(c, -1, 1);
  }
  const double l = car.length;
  FillRounded(c, -l / 2 - 8, -8, l + 16, 16, 8, Rgb(0x000000, 0.28));
  FillRounded(c, -l / 2, -58, l, 48, 14, car.body);
  FillRounded(c, -l * 0.34, -96, l * 0.58, 60, 20, car.body);
  FillRounded(c, -l * 0.29, -88, l * 0.22, 32, 8, Rgb(0xBFD9EA));
  FillRounded(c, -l * 0.04, -88, l * 0.22, 32, 8, Rgb(0xBFD9EA));
  FillRectangle(c, l / 2 - 12, -48, 12, 12, Rgb(0xFFF4C0));
  FillRectangle(c, -l / 2, -48, 8, 12, Rgb(0xD03030));
  for (const double wheel : {-l * 0.3, l * 0.3}) {
    FillCircle(c, wheel, -8, 20, Rgb(0x22262A));
    FillCircle(c, wheel, -8, 9, Rgb(0xB8BEC4));
  }
  cairo_restore(c);
}

}  // namespace

// A chimney in the middle of the town, a band every five degrees.
void DrawTiltScale(cairo_t* c) {
  constexpr double kHalf = 40;
  for (int degree = -15; degree < 30; degree += 5) {
    const double y = kSceneCentreY - (degree + 5) * kPixelsPerDegree;
    const bool red = (degree / 5) % 2 == 0;
    const double half = kHalf - (degree + 15) * 0.25;
    FillRectangle(c, kSceneCentreX - 60 - half, y, 2 * half, 5 * kPixelsPerDegree,
                  red ? Rgb(0xC8413A) : Rgb(0xF4F0EA));
    DrawCentred(c, kSceneCentreX - 60, y + 5 * kPixelsPerDegree - 12, 26,
                Format(degree > 0 ? "+%d" : "%d", degree).c_str(), red ? Rgb(0xFFFFFF) : Rgb(0x803028));
  }
}

void DrawStreet(cairo_t* c) {
  FillRectangle(c, 0, kGround, kSceneWidth, kKerb - kGround, Rgb(0xB9B2A6));
  for (int slab = 0; slab * 60 < kSceneWidth; ++slab) {
    FillRectangle(c, slab * 60, kGround, 2, kKerb - kGround, Rgb(0x9C958A));
  }
  DrawPanScale(c);
  FillRectangle(c, 0, kKerb - 8, kSceneWidth, 8, Rgb(0xDAD5CB));
  FillRectangle(c, 0, kKerb, kSceneWidth, kStreetEnd - kKerb, Rgb(0x4B5158));
  for (int dash = 0; dash * 160 < kSceneWidth; ++dash) {
    FillRectangle(c, 20 + dash * 160, (kKerb + kStreetEnd) / 2 - 4, 90, 8, Rgb(0xF2EFE6));
  }
  for (int stripe = 0; stripe < 6; ++stripe) {
    FillRectangle(c, 1480 + 36.0 * stripe, kKerb + 8, 20, kStreetEnd - kKerb - 16, Rgb(0xF2EFE6));
  }
  FillRectangle(c, 0, kStreetEnd, kSceneWidth, kSceneHeight - kStreetEnd, Rgb(0x6E9A55));
  FillRectangle(c, 0, kStreetEnd, kSceneWidth, 10, Rgb(0xDAD5CB));
  Dice dice(31);
  for (int i = 0; i < 900; ++i) {
    static constexpr Colour kFlowers[] = {Rgb(0xF5E663), Rgb(0xF2F2F2), Rgb(0xE58AA8), Rgb(0x5C8747)};
    FillCircle(c, dice.Between(0, kSceneWidth), dice.Between(1850, kSceneHeight), dice.Between(3, 7),
               kFlowers[i % 4]);
  }
  for (const double x : {255.0, 755.0, 1225.0, 1470.0, 1900.0, 2380.0, 2600.0, 2872.0}) {
    DrawTree(c, x, dice.Between(130, 175), dice);
  }
  for (unsigned lamp = 0; lamp < kStreetLamps; ++lamp) {
    DrawLampPost(c, lamp);
  }
}

void DrawActors(cairo_t* c, double seconds, unsigned lamps) {
  static constexpr Car kCars[] = {
      {1560, 190, 200, 210, Rgb(0xC23B3B)},   {1560, 190, 1500, 230, Rgb(0xE9B23C)},
      {1560, 190, 2700, 205, Rgb(0x3F7D58)},  {1692, -240, 900, 220, Rgb(0x2F6DB5)},
      {1692, -240, 2100, 260, Rgb(0xEDEDED)}, {1692, -240, 3300, 215, Rgb(0x5B4A8A)},
  };
  for (const Car& car : kCars) {
    DrawCar(c, car, seconds);
  }
  for (unsigned lamp = 0; lamp < kStreetLamps; ++lamp) {
    if ((lamps >> lamp & 1U) != 0) {
      const double top = kKerb - kLampHeight;
      FillGlow(c, LampX(lamp), top + 16, 230, Rgb(0xFFE27A, 0.8));
      FillRounded(c, LampX(lamp) - 16, top + 4, 32, 22, 8, Rgb(0xFFF8C8));
    }
  }
}

}  // namespace simcam
