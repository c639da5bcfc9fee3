#pragma once

#include <array>
#include <atomic>
#include <optional>
#include <string_view>

#include "CameraConfig.h"
#include "DriverSession.h"
#include "FramePool.h"
#include "kolvex/IIPPTZDriver.h"

namespace kolvex_host {

/// Something that a head or its lens does until it is stopped.
struct Movement {
  std::string_view name;
  bool isLens;
  sarnevo::i32 (*start)(sarnevo::IIPPTZApi& api, sarnevo::i32 speed);
};
extern const std::array<Movement, 14> kMovements;
/// Null when there is none of that name.
const Movement* FindMovement(std::string_view name);

/// Throws Failure when the record alone shows that the driver can't move the camera's head.
void CheckHead(const CameraConfig& camera);

/// The PTZ head of one camera.
///
/// A head that isn't stopped moves on, whatever becomes of this program. So a movement that began here ends
/// here: by Finish, or by the destructor on every other way out. One thread.
class HeadSession {
 public:
  /// @p library outlives the session. Throws Failure when the camera has no head that the driver knows.
  HeadSession(const Library& library, CameraConfig camera, Login login, DriverSession::Log log);
  ~HeadSession();
  HeadSession(const HeadSession&) = delete;
  HeadSession& operator=(const HeadSession&) = delete;

  sarnevo::IIPPTZApi& Api() { return *api_; }
  /// @p speed from 1 to 16. Throws Failure.
  void Move(const Movement& movement, sarnevo::i32 speed);
  /// Asks head and lens to stop, without waiting for the camera.
  void Halt();
  /// The driver has reported a failure since the last call.
  bool TakeFailure() { return failed_.exchange(false, std::memory_order_relaxed); }
  /// Ends the session with head and lens at rest; makes sure that the camera has taken the stop. Up to some
  /// seconds. Throws Failure (ExitCode::Camera) when it hasn't.
  void Finish();

 private:
  void Open();
  /// Whether the camera took a stop, after which the driver is closed.
  bool StopAndClose();

  const Library& library_;
  const CameraConfig camera_;
  const Login login_;
  const DriverSession::Log log_;
  FramePool noFrames_{0};
  bool moving_ = false;
  std::atomic<bool> failed_{false};  // by the library's threads
  std::optional<DriverSession> driver_;
  sarnevo::IIPPTZApi* api_ = nullptr;  // the driver's
};

}  // namespace kolvex_host
