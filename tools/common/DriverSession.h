#pragma once

#include <functional>
#include <string>

#include "CameraConfig.h"
#include "Credentials.h"
#include "Library.h"
#include "kolvex/IDebugInfoSink.h"
#include "kolvex/IFrameAllocator.h"

namespace kolvex_host {

/// One opened driver of the library, from CreateIPCapture and Open to Close and DeleteIPCapture.
///
/// Made and destroyed on the main thread.
class DriverSession {
 public:
  /// Takes the library's debug messages, on any thread.
  using Log = std::function<void(const std::string& camera, unsigned level, const char* text)>;

  /// Throws Failure (ExitCode::Refused) when the driver doesn't open. All arguments outlive the session.
  DriverSession(const Library& library, const CameraConfig& camera, Login login,
                sarnevo::ipcapture::IFrameAllocator& allocator, Log log);
  /// Closes the driver, which ends what still runs, and gives it back to the library.
  ~DriverSession();
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;

  sarnevo::ipcapture::IIPCaptureDriverEx3* operator->() const { return driver_.get(); }

 private:
  class DebugSink final : public sarnevo::ipcapture::IDebugInfoSink {
   public:
    DebugSink(std::string camera, Log log) : camera_(std::move(camera)), log_(std::move(log)) {}
    void OnDebugInfo(CDebugInfoIf* info) override;

   private:
    std::string camera_;
    Log log_;
  };

  DebugSink debugSink_;
  Library::DriverPtr driver_;
};

}  // namespace kolvex_host
