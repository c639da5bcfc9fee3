#include "CameraSession.h"

#include "Failure.h"
#include "HostParams.h"

namespace kolvex_host {

namespace {

/// The program shows one stream per camera.
constexpr sarnevo::u32 kChannel = 0;

}  // namespace

CameraSession::CameraSession(const Library& library, const CameraConfig& camera, Login login, StreamSink& sink,
                             FramePool& pool, DriverSession::Log log)
    : camera_(camera), sink_(sink), driver_(library, camera, std::move(login), pool, std::move(log)) {
  capture_ = driver_->GetVideoCapture();
  if (!capture_) {
    throw Failure(ExitCode::Refused, "The driver has no video for the camera " + camera_.name + ".");
  }
}

CameraSession::~CameraSession() { Stop(); }

void CameraSession::Start() {
  VideoParams params(camera_);
  if (!capture_->StartCapture(kChannel, &sink_, &params)) {
    throw Failure(ExitCode::Refused,
                  "The driver refused to start the stream of the camera " + camera_.name + ".");
  }
  running_ = true;
}

void CameraSession::Stop() {
  if (running_) {
    running_ = false;
    capture_->StopCapture(kChannel);
  }
}

}  // namespace kolvex_host
