#include "simcam/head/PtzHead.h"

#include <algorithm>
#include <cmath>
#include <variant>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

constexpr double kStep = 0.005;        // seconds of one step of the mechanics
constexpr double kTopSpeed = 30;       // degrees a second at full command speed
constexpr double kTravelSpeed = 40;    // degrees a second on the way to a stored position
constexpr double kAcceleration = 120;  // degrees per second squared
constexpr double kZoomSpeed = 1.0;     // doublings a second
constexpr double kZoomAcceleration = 6;
constexpr double kFocusSpeed = 0.5;  // of its half range, a second
constexpr double kIrisSpeed = 1.5;   // stops a second
constexpr double kAutoSpeed = 2.0;   // how fast automatic focus and iris get home
constexpr double kPanLimit = 30;     // degrees to either side: as far as the scene goes
constexpr double kTiltDown = -8, kTiltUp = 16;
constexpr double kZoomLimit = 2.32;  // doublings: fivefold

double Approach(double value, double target, double step) {
  return value < target ? std::min(value + step, target) : std::max(value - step, target);
}

}  // namespace

PtzHead::PtzHead(HeadProtocol protocol, double pan, double tilt, double zoom) : protocol_(protocol) {
  pan_.position = pan;
  tilt_.position = tilt;
  zoom_.position = std::log2(zoom);
}

void PtzHead::Axis::Step(double seconds, double acceleration, double minimum, double maximum) {
  speed = Approach(speed, wanted, acceleration * seconds);
  position += speed * seconds;
  if (position <= minimum || position >= maximum) {
    position = std::clamp(position, minimum, maximum);
    speed = 0;
  }
}

void PtzHead::Axis::Seek(double target, double top) {
  const double away = target - position;
  wanted = std::clamp(away * 3, -top, top);
  if (std::abs(away) < 0.01 && std::abs(speed) < top * 0.05) {
    position = target;
    speed = wanted = 0;
  }
}

void PtzHead::Write(std::span<const std::uint8_t> bytes, Clock::time_point now) {
  Look(now);
  const Decoded decoded = DecodeFrame(protocol_, bytes);
  if (const auto* error = std::get_if<std::string>(&decoded)) {
    ++errors_;
    lastError_ = *error;
    return;
  }
  ++frames_;
  Obey(std::get<HeadCommand>(decoded));
}

void PtzHead::Obey(const HeadCommand& command) {
  using Kind = HeadCommand::Kind;
  switch (command.kind) {
    case Kind::Drive:
      seeking_ = false;
      pan_.wanted = command.pan * kTopSpeed;
      tilt_.wanted = command.tilt * kTopSpeed;
      zoom_.wanted = command.zoom * kZoomSpeed;
      focusDrive_ = command.focus;
      irisDrive_ = command.iris;
      autoFocus_ = autoFocus_ && command.focus == 0;
      autoIris_ = autoIris_ && command.iris == 0;
      break;
    case Kind::FocusStop:
      focusDrive_ = 0;
      break;
    case Kind::AutoFocus:
      autoFocus_ = true;
      break;
    case Kind::AutoIris:
      autoIris_ = true;
      break;
    case Kind::Store:
      presets_[command.number] = {pan_.position, tilt_.position, zoom_.position};
      break;
    case Kind::StoreAtLast:
      presets_[lastSlot_] = {pan_.position, tilt_.position, zoom_.position};
      break;
    case Kind::Recall:
      lastSlot_ = command.number;
      if (const auto found = presets_.find(command.number); found != presets_.end()) {
        target_ = found->second;
        seeking_ = true;
      }
      break;
    case Kind::Clear:
      presets_.erase(command.number);
      break;
    case Kind::ClearAll:
      presets_.clear();
      break;
  }
}

void PtzHead::Step(double seconds) {
  if (seeking_) {
    pan_.Seek(target_.pan, kTravelSpeed);
    tilt_.Seek(target_.tilt, kTravelSpeed);
    zoom_.Seek(target_.zoom, kZoomSpeed * 2);
  }
  pan_.Step(seconds, kAcceleration, -kPanLimit, kPanLimit);
  tilt_.Step(seconds, kAcceleration, kTiltDown, kTiltUp);
  zoom_.Step(seconds, kZoomAcceleration, 0, kZoomLimit);
  focus_ = autoFocus_ ? Approach(focus_, 0, kAutoSpeed * seconds)
                      : std::clamp(focus_ + focusDrive_ * kFocusSpeed * seconds, -1.0, 1.0);
  iris_ = autoIris_ ? Approach(iris_, 0, kAutoSpeed * seconds)
                    : std::clamp(iris_ + irisDrive_ * kIrisSpeed * seconds, -3.0, 2.0);
}

bool PtzHead::moving() const {
  return pan_.speed != 0 || tilt_.speed != 0 || zoom_.speed != 0 || pan_.wanted != 0 || tilt_.wanted != 0 ||
         zoom_.wanted != 0;
}

View PtzHead::Look(Clock::time_point now) {
  constexpr double kLongestGap = 60;  // seconds; everything has come to rest by then
  const double gap = std::min(std::chrono::duration<double>(now - now_).count(), kLongestGap);
  const auto steps = static_cast<int>(gap / kStep);
  for (int i = 0; i < steps; ++i) {
    Step(kStep);
  }
  if (steps > 0) {
    now_ = now;
  }
  View view;
  view.pan = pan_.position;
  view.tilt = tilt_.position;
  view.zoom = std::exp2(zoom_.position);
  view.blur = std::abs(focus_);
  view.exposure = iris_;
  view.showHead = touched();
  return view;
}

HeadStatus PtzHead::Status(Clock::time_point now) {
  const View view = Look(now);
  HeadStatus status;
  status.protocol = static_cast<unsigned>(protocol_);
  status.pan = view.pan;
  status.tilt = view.tilt;
  status.zoom = view.zoom;
  status.focus = focus_;
  status.iris = iris_;
  status.moving = moving();
  status.frames = frames_;
  status.errors = errors_;
  status.lastError = lastError_;
  status.lastSlot = lastSlot_;
  for (const auto& [number, at] : presets_) {
    status.presets.push_back(
        Format("%u: pan %+.1f tilt %+.1f zoom %.1f", number, at.pan, at.tilt, std::exp2(at.zoom)));
  }
  return status;
}

}  // namespace simcam
