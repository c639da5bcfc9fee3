#include "CameraSession.h"

#include "Failure.h"
#include "HostParams.h"

namespace kolvex_host {

namespace {

/// The program shows one stream per camera.
constexpr sarnevo::u32 kChannel = 0;

}  // namespace

CameraSession::CameraSession(const Library& library, const CameraConfig& camera, Login login, StreamSink& sink,
                             FramePool& pool, Log log)
    : camera_(camera), sink_(sink), debugSink_(camera.name, std::move(log)), driver_(library.CreateDriver()) {
  DriverParams params(camera_, std::move(login));
  if (!driver_->Open(&debugSink_, &pool, &params)) {
    throw Failure(ExitCode::Refused,
                  "The driver refused to open the camera " + camera_.name +
                      ": its numbered settings 2 (group) and 3 (video standard) must be right.");
  }
  capture_ = driver_->GetVideoCapture();
  if (!capture_) {
    throw Failure(ExitCode::Refused, "The driver has no video for the camera " + camera_.name + ".");
  }
}

CameraSession::~CameraSession() {
  Stop();
  driver_->Close();
  // The driver goes back to the library with driver_.
}

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

void CameraSession::DebugSink::OnDebugInfo(CDebugInfoIf* info) {
  // The record lives only during this call; the text of an empty message is null.
  if (log_ && info->GetText()) {
    log_(camera_, info->GetLevel(), info->GetText());
  }
}

}  // namespace kolvex_host
