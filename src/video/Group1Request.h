#pragma once

#include <optional>
#include <string>

#include "device/CQualitySettings.h"
#include "video/StreamFormat.h"

namespace sarnevo {

/// The path and query that configures a group 1 camera. Nothing when the codec is unknown, or when the
/// camera's bit rates don't reach the one that the quality asks for: such a camera can't be configured.
std::optional<std::string> BuildGroup1Request(const StreamFormat& format, const CQualitySettings& quality);

}  // namespace sarnevo
