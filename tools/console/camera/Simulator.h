#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "CameraConfig.h"
#include "Credentials.h"
#include "web/Http.h"

namespace kolvex_console {

/// The faults that the page offers of simulated cameras: "id" and "title".
nlohmann::json FaultList();

/// Has the simulated camera at @p address begin a fault of the list in place of the one before. @p control is
/// ADDRESS:PORT of kolvex-camera --control. Up to 3 seconds.
Reply SwitchFault(const std::string& control, const std::string& address, const std::string& fault);

}  // namespace kolvex_console
