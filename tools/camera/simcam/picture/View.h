#pragma once

#include <cstdint>

namespace simcam {

/// Where a camera looks and how it sees. The default is a camera without a moving head.
struct View {
  double pan = 0;           ///< degrees, positive to the right
  double tilt = 0;          ///< degrees, positive upwards
  double zoom = 1;          ///< 1 is the widest
  double blur = 0;          ///< 0 sharp to 1 far out of focus
  double exposure = 0;      ///< stops, positive is brighter
  std::uint32_t lamps = 0;  ///< bit n is set while output n + 1 is high
  bool showHead = false;    ///< write pan, tilt and zoom into the picture

  bool operator==(const View&) const = default;
};

}  // namespace simcam
