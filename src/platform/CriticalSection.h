#pragma once

#include <mutex>

namespace sarnevo::platform {

/// A recursive lock of the operating system. Lockable by std::lock_guard.
using CriticalSection = std::recursive_mutex;

}  // namespace sarnevo::platform
