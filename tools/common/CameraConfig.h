#pragma once

#include <map>
#include <string>
#include <string_view>

#include "kolvex/Types.h"

namespace kolvex_host {

/// One camera as the host has it on record: how it is reached, what it is, and which stream is wanted.
///
/// The numbered settings and the device's facts come from a capability query of the library, or are filled
/// in with what such a query gives by default.
struct CameraConfig {
  std::string name;     ///< for people, files and the contact sheet; the address when nothing is given
  std::string address;  ///< dotted IPv4
  sarnevo::u16 port = 80;

  // The wanted stream.
  sarnevo::Codec codec = sarnevo::CodecMJPEG;
  sarnevo::u16 width = 0;  ///< pixels; 0 until Complete chooses what the group takes as its usual size
  sarnevo::u16 height = 0;
  sarnevo::u16 frameInterval = 40;  ///< milliseconds
  sarnevo::u16 quality = 60;        ///< percent, 100 is the best

  // The device.
  std::string model;
  sarnevo::u32 channels = 1;
  sarnevo::u32 inputs = 0;
  sarnevo::u32 outputs = 0;

  /// Numbered settings by index (sarnevo::CustomSetting).
  std::map<sarnevo::u32, std::string> settings;

  /// The camera group, "1" or "2"; an empty text until it is set.
  std::string Group() const;
  /// "MJPEG" or "MPEG-4".
  const char* CodecName() const;

  /// Sets one field from text: the keys of the command line and of camera files are these. Throws Failure
  /// (ExitCode::Usage) for an unknown key and for a value that it can't have.
  void Set(std::string_view key, std::string_view value);
  /// Checks that nothing is missing and fills in what may be left out. Throws Failure (ExitCode::Usage).
  void Complete();
};

/// A camera from one command line argument, "ADDRESS[:PORT],KEY=VALUE,..."; see kCameraKeysHelp. Not completed,
/// since the group may be left to a query. Throws Failure.
CameraConfig ParseCamera(std::string_view text);
/// The part of such an argument that follows the first comma.
std::string_view KeysOf(std::string_view text);
/// Applies "KEY=VALUE,..." to a camera. Throws Failure (ExitCode::Usage).
void ApplyKeys(CameraConfig& camera, std::string_view keys);

/// The keys, for --help.
extern const char* const kCameraKeysHelp;

}  // namespace kolvex_host
