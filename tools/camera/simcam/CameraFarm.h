#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simcam/SimulatedCamera.h"
#include "simcam/device/CameraSettings.h"

namespace simcam {

/// All cameras of a process: hundreds of them live on one thread for the network and a few that encode.
/// Cameras that show the same share the encoder's frames, so that one more costs little but its packets.
/// Any thread may call, one at a time.
class CameraFarm {
 public:
  /// 0 encoder threads: one for each processor, at most four.
  explicit CameraFarm(unsigned encoderThreads = 0);
  ~CameraFarm();  ///< all cameras go at once; their handles are invalid from here on
  CameraFarm(const CameraFarm&) = delete;
  CameraFarm& operator=(const CameraFarm&) = delete;

  /// Whether such a camera makes sense and can do these control commands; a sentence if not. Switches nothing on.
  std::string Check(const CameraSettings& settings, std::string_view commands);

  /// Switches a camera on. Null, with a sentence in `error`, when it can't listen or makes no sense. The
  /// handle belongs to the farm.
  SimulatedCamera* Add(const CameraSettings& settings, std::string& error);

  /// The same, or std::runtime_error with that sentence: for tests.
  SimulatedCamera& Add(const CameraSettings& settings);

  /// The same from properties as on the command line: "group=1,address=127.0.1.1,model=P-423".
  SimulatedCamera& Add(std::string_view properties);

  /// Switches a camera off for good; its handle is invalid from here on.
  void Remove(SimulatedCamera* camera);

  const std::vector<std::unique_ptr<SimulatedCamera>>& cameras() const { return cameras_; }

  /// Serves GET /?camera=ADDRESS&... and GET /status for all cameras on a port of its own, which stays
  /// reachable while cameras refuse. Without "camera" a command goes to all. False with a sentence when the
  /// port can't be bound.
  bool ServeControl(const std::string& address, std::uint16_t port, std::string& error);

  std::size_t encoders();  ///< how many encoders are at work

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
  std::vector<std::unique_ptr<SimulatedCamera>> cameras_;
};

}  // namespace simcam
