#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "simcam/base/EventLoop.h"
#include "simcam/device/CameraStatus.h"
#include "simcam/head/HeadProtocol.h"
#include "simcam/picture/View.h"

namespace simcam {

/// A pan, tilt and zoom head at a serial port. It has mass: it takes time to get going and to stop, and to
/// travel to a stored position. Loop thread only.
class PtzHead {
 public:
  PtzHead(HeadProtocol protocol, double pan, double tilt, double zoom);

  /// The bytes of one write to the serial port. What can't be decoded is counted and changes nothing.
  void Write(std::span<const std::uint8_t> bytes, Clock::time_point now);

  /// Moves on to that moment and says what is seen.
  View Look(Clock::time_point now);

  /// Where it is at that moment, for the camera's status.
  HeadStatus Status(Clock::time_point now);

  bool touched() const { return frames_ > 0; }  ///< a valid frame has come since it was made

 private:
  struct Axis {
    double position = 0;
    double speed = 0;
    double wanted = 0;  // speed that it is told to have
    void Step(double seconds, double acceleration, double minimum, double maximum);
    void Seek(double target, double top);
  };
  struct Position {
    double pan, tilt, zoom;
  };
  void Obey(const HeadCommand& command);
  void Step(double seconds);
  bool moving() const;

  HeadProtocol protocol_;
  Axis pan_, tilt_;  // degrees
  Axis zoom_;        // doublings: 0 is the widest
  double focus_ = 0, iris_ = 0;
  int focusDrive_ = 0, irisDrive_ = 0;
  bool autoFocus_ = true, autoIris_ = true;
  bool seeking_ = false;
  Position target_{};
  std::map<unsigned, Position> presets_;
  unsigned lastSlot_ = 0;
  Clock::time_point now_{};
  std::uint64_t frames_ = 0, errors_ = 0;
  std::string lastError_;
};

}  // namespace simcam
