#include "DriverSession.h"

#include "Failure.h"
#include "HostParams.h"

namespace kolvex_host {

DriverSession::DriverSession(const Library& library, const CameraConfig& camera, Login login,
                             sarnevo::ipcapture::IFrameAllocator& allocator, Log log)
    : debugSink_(camera.name, std::move(log)), driver_(library.CreateDriver()) {
  DriverParams params(camera, std::move(login));
  if (!driver_->Open(&debugSink_, &allocator, &params)) {
    throw Failure(ExitCode::Refused,
                  "The driver refused to open the camera " + camera.name +
                      ": its numbered settings 2 (group) and 3 (video standard) must be right.");
  }
}

DriverSession::~DriverSession() { driver_->Close(); }

void DriverSession::DebugSink::OnDebugInfo(CDebugInfoIf* info) {
  // The record lives only during this call; the text of an empty message is null.
  if (log_ && info->GetText()) {
    log_(camera_, info->GetLevel(), info->GetText());
  }
}

}  // namespace kolvex_host
