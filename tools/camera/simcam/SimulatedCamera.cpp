#include "simcam/SimulatedCamera.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "simcam/device/Camera.h"
#include "simcam/device/Control.h"

namespace simcam {

SimulatedCamera::SimulatedCamera(EventLoop& loop, std::unique_ptr<Camera> camera)
    : loop_(loop), camera_(std::move(camera)) {}

SimulatedCamera::~SimulatedCamera() {
  loop_.Call([this] { camera_ = nullptr; });
}

std::string SimulatedCamera::Control(std::string_view commands) {
  std::string result;
  loop_.Call([&] { result = simcam::Control(*camera_, commands); });
  return result;
}

CameraStatus SimulatedCamera::Status() {
  CameraStatus status;
  loop_.Call([&] { status = camera_->Status(); });
  return status;
}

bool SimulatedCamera::WaitUntil(const std::function<bool(const CameraStatus&)>& holds,
                                std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (holds(Status())) {
      return true;
    }
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

bool SimulatedCamera::WaitForRequest(std::string_view part, std::chrono::milliseconds limit, unsigned count) {
  return WaitUntil(
      [&](const CameraStatus& status) {
        return std::count_if(status.requests.begin(), status.requests.end(), [&](const std::string& request) {
                 return request.find(part) != std::string::npos;
               }) >= static_cast<long>(count);
      },
      limit);
}

}  // namespace simcam
