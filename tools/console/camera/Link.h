#pragma once

#include <functional>
#include <memory>
#include <string>

#include "CameraConfig.h"
#include "Credentials.h"
#include "DriverSession.h"
#include "Library.h"

namespace kolvex_console {

/// What the parts of a camera need to reach it, and to be heard. Never changes.
struct Link {
  std::shared_ptr<kolvex_host::Library> library;
  kolvex_host::CameraConfig config;  ///< under the name that the camera had at first
  kolvex_host::Login login;
  std::function<void(const std::string& text)> log;  ///< any thread
  std::function<void()> changed;                     ///< the state is another; any thread, without a lock

  kolvex_host::DriverSession::Log DriverLog() const {
    return [this](const std::string&, unsigned, const char* text) { log(text); };
  }
};

}  // namespace kolvex_console
