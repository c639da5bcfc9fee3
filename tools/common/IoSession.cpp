#include "IoSession.h"

#include <utility>

#include "Failure.h"

namespace kolvex_host {

std::vector<IoEvent> IoSession::Events::Take() {
  const std::lock_guard guard(lock_);
  return std::exchange(events_, {});
}

void IoSession::Events::OnInputChanged(sarnevo::u32 index, sarnevo::u32 state) {
  const std::lock_guard guard(lock_);
  events_.push_back({std::chrono::system_clock::now(), false, index, state});
}

void IoSession::Events::OnIOFailure() {
  const std::lock_guard guard(lock_);
  events_.push_back({std::chrono::system_clock::now(), true, 0, 0});
}

IoSession::IoSession(const Library& library, CameraConfig camera, Login login, DriverSession::Log log)
    : camera_(std::move(camera)), driver_(library, camera_, std::move(login), noFrames_, std::move(log)) {
  io_ = driver_->GetCaptureIO();
  if (!io_ || !io_->SetCallback(&events_) || !io_->Start()) {
    throw Failure(ExitCode::Refused,
                  "The driver refused the inputs and outputs of the camera " + camera_.name + ".");
  }
}

IoSession::~IoSession() { Stop(); }

void IoSession::SetOutput(sarnevo::u32 index, sarnevo::u32 state) {
  if (!io_->SetOutput(index, state)) {
    throw Failure(ExitCode::Refused, "The driver takes no request for an output of " + camera_.name + ".");
  }
}

void IoSession::Stop() { io_->Stop(); }

}  // namespace kolvex_host
