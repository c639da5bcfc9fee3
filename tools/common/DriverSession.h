#pragma once

#include <functional>
#include <string>

#include "CameraConfig.h"
#include "Credentials.h"
#include "Library.h"
#include "kolvex/IDebugInfoSink.h"
#include "kolvex/IFrameAllocator.h"
#include "kolvex/IFrameSink.h"

namespace kolvex_host {

/// One opened driver of the library, from CreateIPCapture and Open to Close and DeleteIPCapture.
///
/// Made and destroyed on one thread.
class DriverSession {
 public:
  /// Takes the library's debug messages, on any thread.
  using Log = std::function<void(const std::string& camera, unsigned level, const char* text)>;

  /// Throws Failure (ExitCode::Refused) when the driver doesn't open. @p library and @p allocator outlive the
  /// session; @p camera and @p login are read in this call only.
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

/// One driver with one stream: the order of calls that every host follows, from CreateIPCapture to
/// DeleteIPCapture.
///
/// One thread, but for Stop, which another thread may call.
class CameraSession {
 public:
  /// Opens the driver; starts nothing. Throws Failure (ExitCode::Refused). @p library, @p sink and @p allocator
  /// outlive the session. @p allocator gets frames of the sink's kind.
  CameraSession(const Library& library, CameraConfig camera, Login login, sarnevo::ipcapture::IFrameSink& sink,
                sarnevo::ipcapture::IFrameAllocator& allocator, DriverSession::Log log);
  /// Stops the stream if it still runs; the driver then closes.
  ~CameraSession();
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  /// Returns at once; frames come some 3 seconds after it. Throws Failure (ExitCode::Refused).
  void Start();
  /// Ends the stream; no callback of it runs afterwards. May take as long as the library takes to leave the
  /// camera, up to 20 seconds.
  void Stop();

 private:
  const CameraConfig camera_;
  sarnevo::ipcapture::IFrameSink& sink_;
  DriverSession driver_;
  sarnevo::ipcapture::IIPVideoCapture* capture_ = nullptr;  // the driver's
  bool running_ = false;
};

}  // namespace kolvex_host
