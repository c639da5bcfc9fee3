#pragma once

#include <string>
#include <string_view>

#include "simcam/net/HttpService.h"

namespace simcam {

class Camera;

/// Where a camera's HTTP port takes control commands, without credentials and unspoiled by faults.
inline constexpr std::string_view kControlPath = "/sim.cgi";

/// Carries out "key=value&..." on a camera; the keys are those of ControlHelp. Stops at the first that isn't
/// known or makes no sense and gives a sentence about it; empty when all is done.
std::string Control(Camera& camera, std::string_view commands);

/// A reply to GET /sim.cgi?...: the camera's status as JSON when the query is empty or "status", otherwise
/// "ok", or status 400 with the sentence.
HttpReply AnswerControl(Camera& camera, std::string_view target);

/// The keys and what they do, for --help.
std::string ControlHelp();

}  // namespace simcam
