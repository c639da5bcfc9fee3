#pragma once

#include <chrono>
#include <mutex>
#include <vector>

#include "CameraConfig.h"
#include "DriverSession.h"
#include "FramePool.h"
#include "kolvex/ICaptureIOApi.h"

namespace kolvex_host {

/// What a camera's digital inputs and outputs have reported.
struct IoEvent {
  std::chrono::system_clock::time_point time;
  bool isFailure = false;  ///< a request failed; the rest has no meaning
  sarnevo::u32 input = 0;  ///< from 0
  sarnevo::u32 state = 0;  ///< an IOState
};

/// The digital inputs and outputs of one camera, running from construction to Stop.
///
/// One thread. The library's callbacks only put events into a list that it takes.
class IoSession {
 public:
  /// @p camera is told to the driver as it is: with as many inputs and outputs as are to be used. Starting
  /// sets all these outputs low. @p library outlives the session. Throws Failure.
  IoSession(const Library& library, CameraConfig camera, Login login, DriverSession::Log log);
  ~IoSession();
  IoSession(const IoSession&) = delete;
  IoSession& operator=(const IoSession&) = delete;

  void SetOutput(sarnevo::u32 index, sarnevo::u32 state);
  /// Waits for requests under way, at most about 5 seconds for inputs and outputs each.
  void Stop();
  /// What has come since the last call. Any time, after Stop too.
  std::vector<IoEvent> TakeEvents() { return events_.Take(); }

 private:
  class Events final : public sarnevo::ICaptureIOCallback {
   public:
    std::vector<IoEvent> Take();

   private:
    void OnInputChanged(sarnevo::u32 index, sarnevo::u32 state) override;
    void OnIOFailure() override;

    std::mutex lock_;
    std::vector<IoEvent> events_;  // guarded by lock_
  };

  const CameraConfig camera_;
  Events events_;
  FramePool noFrames_{0};
  DriverSession driver_;
  sarnevo::ICaptureIOApi* io_ = nullptr;  // the driver's
};

}  // namespace kolvex_host
