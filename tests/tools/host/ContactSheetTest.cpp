#include <cairo.h>

#include <array>
#include <memory>

#include <gtest/gtest.h>

#include "HostRun.h"

namespace {

using kolvex_test::HostRun;

/// A pixel of a picture file as red, green and blue.
std::array<int, 3> Pixel(cairo_surface_t* surface, double across, double down) {
  const int x = static_cast<int>(across * cairo_image_surface_get_width(surface));
  const int y = static_cast<int>(down * cairo_image_surface_get_height(surface));
  const unsigned char* const pixel =
      cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface) + x * 4;
  return {pixel[2], pixel[1], pixel[0]};
}

TEST(ContactSheet, ShowsEachStreamInItsPlaceAndColour) {
  HostRun run;
  const auto result = run.Run(
      "capture --duration 1.5 --out out --camera 127.0.0.1,group=2,size=320x240,model=0 "
      "--camera 127.0.0.2,group=2,size=320x240,model=0 --camera 127.0.0.3,group=2,size=320x240,model=0 "
      "--camera 127.0.0.4,group=2,size=320x240");
  EXPECT_EQ(result.exit, 4) << "the fourth is silent: " << result.err;

  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> sheet(
      cairo_image_surface_create_from_png((run.Folder() / "out/contact-sheet.png").c_str()),
      &cairo_surface_destroy);
  ASSERT_EQ(cairo_surface_status(sheet.get()), CAIRO_STATUS_SUCCESS);
  struct Field {
    double across, down;
    int brightest;  // of red, green, blue; -1 for the dark field of a stream without a picture
  };
  for (const Field& field : {Field{0.25, 0.2, 0}, {0.75, 0.2, 1}, {0.25, 0.7, 2}, {0.9, 0.7, -1}}) {
    const auto pixel = Pixel(sheet.get(), field.across, field.down);
    for (int channel = 0; channel < 3; ++channel) {
      // What goes through JPEG comes back within a few steps.
      const int expected = field.brightest == -1 ? 46 : channel == field.brightest ? 200 : 40;
      EXPECT_NEAR(pixel[static_cast<std::size_t>(channel)], expected, 8)
          << "channel " << channel << " at " << field.across << ", " << field.down;
    }
  }
}

}  // namespace
