#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// What a camera is asked to stream.
struct StreamFormat {
  u32 width = 0;          ///< pixels
  u32 height = 0;         ///< pixels
  u32 quality = 60;       ///< percentage, 100 the best
  u32 frameInterval = 0;  ///< milliseconds between frames
  u32 codec = 0;          ///< one of the Codec values
  u32 videoStandard = VideoStandardPAL;
};

}  // namespace sarnevo
