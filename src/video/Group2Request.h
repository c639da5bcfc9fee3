#pragma once

#include <string>

#include "video/StreamFormat.h"

namespace sarnevo {

/// The path and query that configures a group 2 camera. A size that the camera has no word for is left out,
/// as is a frame rate for an interval of 0, and the camera keeps what it has.
std::string BuildGroup2Request(const StreamFormat& format);

}  // namespace sarnevo
