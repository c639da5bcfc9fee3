#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "simcam/device/CameraStatus.h"

namespace simcam {

class Camera;
class CameraFarm;
class EventLoop;

/// The handle of one camera of a CameraFarm. Any thread may call; each call runs on the farm's thread and
/// returns when it is done.
class SimulatedCamera {
 public:
  SimulatedCamera(EventLoop& loop, std::unique_ptr<Camera> camera);
  ~SimulatedCamera();
  SimulatedCamera(const SimulatedCamera&) = delete;
  SimulatedCamera& operator=(const SimulatedCamera&) = delete;

  /// Carries out "key=value&...", the same commands as GET /sim.cgi?... Empty, or a sentence about the first
  /// that makes no sense.
  std::string Control(std::string_view commands);

  CameraStatus Status();

  /// Waits until the predicate holds for a fresh status. False when the limit runs out.
  bool WaitUntil(const std::function<bool(const CameraStatus&)>& holds, std::chrono::milliseconds limit);

  /// Waits for the n-th request (counted from 1) whose text contains `part`, among the newest 300.
  bool WaitForRequest(std::string_view part, std::chrono::milliseconds limit, unsigned count = 1);

 private:
  EventLoop& loop_;
  std::unique_ptr<Camera> camera_;  // touched on the loop's thread only
};

}  // namespace simcam
