#pragma once

#include "CameraConfig.h"
#include "Credentials.h"
#include "DriverSession.h"
#include "FramePool.h"
#include "Library.h"
#include "StreamSink.h"

namespace kolvex_host {

/// One driver of the library with one running stream: the order of calls that every host follows, from
/// CreateIPCapture to DeleteIPCapture.
///
/// Main thread, but for Stop, which another thread may call.
class CameraSession {
 public:
  /// Opens the driver; starts nothing. Throws Failure (ExitCode::Refused). All arguments outlive the session.
  CameraSession(const Library& library, const CameraConfig& camera, Login login, StreamSink& sink,
                FramePool& pool, DriverSession::Log log);
  /// Stops the stream if it still runs; the driver then closes.
  ~CameraSession();
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  /// Throws Failure (ExitCode::Refused).
  void Start();
  /// Ends the stream; no callback of it runs afterwards. May take as long as the library takes to leave the
  /// camera, up to 20 seconds.
  void Stop();

 private:
  const CameraConfig& camera_;
  StreamSink& sink_;
  DriverSession driver_;
  sarnevo::ipcapture::IIPVideoCapture* capture_ = nullptr;  // the driver's
  bool running_ = false;
};

}  // namespace kolvex_host
