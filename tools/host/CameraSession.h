#pragma once

#include <functional>
#include <string>

#include "CameraConfig.h"
#include "Credentials.h"
#include "FramePool.h"
#include "Library.h"
#include "StreamSink.h"
#include "kolvex/IDebugInfoSink.h"

namespace kolvex_host {

/// One driver of the library with one running stream: the order of calls that every host follows, from
/// CreateIPCapture to DeleteIPCapture.
///
/// Main thread, but for Stop, which another thread may call.
class CameraSession {
 public:
  /// Takes the library's debug messages, on any thread.
  using Log = std::function<void(const std::string& camera, unsigned level, const char* text)>;

  /// Opens the driver; starts nothing. Throws Failure (ExitCode::Refused). All arguments outlive the session.
  CameraSession(const Library& library, const CameraConfig& camera, Login login, StreamSink& sink,
                FramePool& pool, Log log);
  /// Stops the stream if it still runs, closes and deletes the driver.
  ~CameraSession();
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  /// Throws Failure (ExitCode::Refused).
  void Start();
  /// Ends the stream; no callback of it runs afterwards. May take as long as the library takes to leave the
  /// camera, up to 20 seconds.
  void Stop();

 private:
  class DebugSink final : public sarnevo::ipcapture::IDebugInfoSink {
   public:
    DebugSink(std::string camera, Log log) : camera_(std::move(camera)), log_(std::move(log)) {}
    void OnDebugInfo(CDebugInfoIf* info) override;

   private:
    std::string camera_;
    Log log_;
  };

  const CameraConfig& camera_;
  StreamSink& sink_;
  DebugSink debugSink_;
  Library::DriverPtr driver_;
  sarnevo::ipcapture::IIPVideoCapture* capture_ = nullptr;  // the driver's
  bool running_ = false;
};

}  // namespace kolvex_host
