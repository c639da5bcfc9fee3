#include "HeadSession.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>

#include "Failure.h"

namespace kolvex_host {

using namespace sarnevo;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kStopAttempts = 3;
/// What a camera that answers needs for a stop and what is queued before it.
constexpr milliseconds kStopSettle{400};
/// A close that takes longer than this broke a request off, or waited for one.
constexpr milliseconds kPromptClose{250};
constexpr u32 kChannel = 0;

template <PtzDirection kDirection>
constexpr auto kToward = [](IIPPTZApi& api, i32 speed) { return api.StartMove(kDirection, speed); };
template <i32 (IIPPTZApi::*kLens)(u32)>
constexpr auto kLensTo = [](IIPPTZApi& api, i32 speed) { return (api.*kLens)(static_cast<u32>(speed)); };

}  // namespace

const std::array<Movement, 14> kMovements = {{
    {"left", false, kToward<PtzLeft>},
    {"right", false, kToward<PtzRight>},
    {"up", false, kToward<PtzUp>},
    {"down", false, kToward<PtzDown>},
    {"left-up", false, kToward<PtzLeftUp>},
    {"right-up", false, kToward<PtzRightUp>},
    {"left-down", false, kToward<PtzLeftDown>},
    {"right-down", false, kToward<PtzRightDown>},
    {"zoom-in", false, [](IIPPTZApi& api, i32 speed) { return api.ZoomIn(speed); }},
    {"zoom-out", false, [](IIPPTZApi& api, i32 speed) { return api.ZoomOut(speed); }},
    {"focus-near", true, kLensTo<&IIPPTZApi::FocusNear>},
    {"focus-far", true, kLensTo<&IIPPTZApi::FocusFar>},
    {"iris-open", true, kLensTo<&IIPPTZApi::IrisOpen>},
    {"iris-close", true, kLensTo<&IIPPTZApi::IrisClose>},
}};

const Movement* FindMovement(std::string_view name) {
  const auto found = std::find_if(kMovements.begin(), kMovements.end(),
                                  [name](const Movement& movement) { return movement.name == name; });
  return found == kMovements.end() ? nullptr : &*found;
}

void CheckHead(const CameraConfig& camera) {
  if (camera.Group() != "1") {
    throw Failure(ExitCode::Camera, "The driver has no PTZ for cameras of group 2, as " + camera.name + " is.");
  }
  if (!camera.settings.contains(SettingMAC)) {
    throw Failure(ExitCode::Usage, "The camera " + camera.name +
                                       " needs its hardware address for PTZ, setting 9, since the names of its "
                                       "positions are kept under it: leave group= out, so that the camera is "
                                       "asked, or use a file of query --save.");
  }
}

HeadSession::HeadSession(const Library& library, CameraConfig camera, Login login, DriverSession::Log log)
    : library_(library), camera_(std::move(camera)), login_(std::move(login)), log_(std::move(log)) {
  CheckHead(camera_);
  Open();
}

void HeadSession::Open() {
  api_ = nullptr;
  driver_.emplace(library_, camera_, login_, noFrames_,
                  [this](const std::string& name, unsigned level, const char* text) {
                    if (level == DebugLevelFailure) {
                      failed_.store(true, std::memory_order_relaxed);
                    }
                    if (log_) {
                      log_(name, level, text);
                    }
                  });
  IIPPTZDriver* const heads = driver_->operator->()->GetPTZDriver();
  IIPPTZApi* const api = heads ? heads->GetPTZApi(kChannel) : nullptr;
  if (!api || api->IsPTZAvailable() == 0) {
    throw Failure(ExitCode::Camera, "The camera " + camera_.name + " reports no PTZ head at its serial port.");
  }
  api_ = api;
}

HeadSession::~HeadSession() {
  if (moving_) {
    try {
      Finish();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "kolvex-host: %s\n", error.what());
    }
  }
}

void HeadSession::Move(const Movement& movement, i32 speed) {
  // Before the order: whatever happens after it, it is followed by a stop.
  moving_ = true;
  if (movement.start(*api_, speed) != PtzDone) {
    throw Failure(ExitCode::Refused, "The driver refused to move the head of " + camera_.name + ".");
  }
}

void HeadSession::Halt() {
  api_->StopMove();
  api_->FocusNear(0);
  api_->IrisOpen(0);
}

void HeadSession::Finish() {
  moving_ = false;  // what can be done is done here
  for (int attempt = 0; attempt < kStopAttempts; ++attempt) {
    try {
      if (StopAndClose()) {
        return;
      }
    } catch (const Failure&) {
      // The camera doesn't answer; perhaps it does in a moment.
    }
  }
  throw Failure(ExitCode::Camera,
                "The head of " + camera_.name + " may still be moving: the camera didn't take the stop.");
}

// The driver queues orders and drops what still waits when it is closed; it reports failures only. A close
// that is prompt had nothing left to wait for.
bool HeadSession::StopAndClose() {
  if (api_ == nullptr) {
    Open();
  }
  TakeFailure();
  Halt();
  std::this_thread::sleep_for(kStopSettle);
  const Clock::time_point close = Clock::now();
  api_ = nullptr;
  driver_.reset();
  return Clock::now() - close < kPromptClose && !TakeFailure();
}

}  // namespace kolvex_host
