#pragma once

#include <chrono>

namespace sarnevo::platform {

/// Durations throughout the library.
using Milliseconds = std::chrono::milliseconds;

}  // namespace sarnevo::platform
