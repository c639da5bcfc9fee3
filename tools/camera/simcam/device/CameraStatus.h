#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "simcam/device/Faults.h"
#include "simcam/device/VideoSettings.h"

namespace simcam {

/// What a camera has done since it was made; nothing is reset by a reboot.
struct CameraCounters {
  std::uint64_t framesSent = 0;     ///< over all its streams, faults or not
  std::uint64_t framesDropped = 0;  ///< the process couldn't keep up
  std::uint64_t packets = 0, bytes = 0, sendErrors = 0;
  std::uint32_t lastFrame = 0;  ///< the number in the picture sent last
  std::uint64_t reportsSent = 0, answersOk = 0, answersBad = 0, answersStray = 0;
  std::string lastBadAnswer;  ///< what was wrong with it
  std::uint64_t httpRequests = 0, rtspRequests = 0, authFailures = 0, badRequests = 0;
  FaultCounts faults;
};

/// The head as it is; `protocol` 0 and zeros when the camera has none.
struct HeadStatus {
  unsigned protocol = 0;
  double pan = 0, tilt = 0, zoom = 1, focus = 0, iris = 0;
  bool moving = false;
  std::uint64_t frames = 0, errors = 0;
  std::string lastError;
  unsigned lastSlot = 0;
  std::vector<std::string> presets;  ///< "3: pan +1.0 tilt -2.0 zoom 1.5"
};

/// A snapshot of one camera.
struct CameraStatus {
  std::string address, model, group;
  bool up = false;          ///< false while it reboots
  unsigned sessions = 0;    ///< RTSP sessions set up
  unsigned playing = 0;     ///< of them streaming
  bool configured = false;  ///< a configuration request has been obeyed
  VideoSettings video;
  std::uint32_t framesEncoded = 0;  ///< counted by the encoder that it shows, alone or with others
  std::string format;               ///< what it streams, in words
  CameraCounters counters;
  Faults faults;
  std::vector<bool> inputs, outputs;
  HeadStatus head;
  /// The newest requests with their exact text, oldest first: "HTTP GET /path?query" or the whole RTSP
  /// request.
  std::vector<std::string> requests;
};

nlohmann::json ToJson(const CameraStatus& status);

}  // namespace simcam
