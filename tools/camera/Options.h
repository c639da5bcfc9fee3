#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simcam/device/CameraSettings.h"

/// What the command line asks for.
struct Options {
  std::vector<simcam::CameraSettings> cameras;
  std::string faults;          ///< control commands for every camera at the start
  std::string controlAddress;  ///< empty: no control port
  std::uint16_t controlPort = 0;
  std::chrono::milliseconds duration{0};  ///< end by itself after that time; 0: never
  unsigned encoderThreads = 0;
  bool quiet = false;
};

/// Reads the command line. Nothing when the program is to end at once, with the exit code in `exitCode`; what
/// there is to say has been printed.
std::optional<Options> ReadOptions(int count, char** arguments, int& exitCode);
