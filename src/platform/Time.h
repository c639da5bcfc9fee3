#pragma once

#include <chrono>

namespace sarnevo::platform {

/// Durations throughout the library.
using Milliseconds = std::chrono::milliseconds;
using Nanoseconds = std::chrono::nanoseconds;

}  // namespace sarnevo::platform
