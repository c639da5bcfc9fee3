#pragma once

#include <string_view>
#include <vector>

#include "kolvex/Types.h"

namespace sarnevo {

/// The limits between which a group 1 camera's picture quality is scaled, as the host handed them in. All
/// are 0 and the list is empty where the host has none.
struct CQualitySettings {
  i32 maxQualityJPEG = 0;     ///< upper end of the camera's constant-quality scale
  i32 minQualityJPEG = 0;     ///< lower end of that scale
  i32 maxQualityMPEG = 0;     ///< highest MPEG-4 bit rate, in the camera's own unit
  i32 minQualityMPEG = 0;     ///< lowest MPEG-4 bit rate
  std::vector<i32> bitrates;  ///< bit rates that the camera accepts, in the host's order
};

/// Reads a list such as "256,512,768,e". A number counts only when a comma follows it; the letter e
/// or the end of the text ends the list. What isn't a number counts as 0.
std::vector<i32> ParseBitrateList(std::string_view text);

}  // namespace sarnevo
