#pragma once

#include <cstdint>
#include <span>

#include "simcam/device/CameraSettings.h"
#include "simcam/device/Inputs.h"

namespace simcam {

/// What the CGI programs read and change. Loop thread only.
class CgiDevice {
 public:
  virtual ~CgiDevice() = default;
  virtual const CameraSettings& settings() const = 0;  ///< completed; `video` is what is configured now
  virtual void Configure(const VideoSettings& video) = 0;
  virtual const Inputs& inputs() const = 0;
  virtual bool output(unsigned index) const = 0;
  virtual void SetOutput(unsigned index, bool high) = 0;
  virtual void WriteSerial(std::span<const std::uint8_t> bytes) = 0;
};

}  // namespace simcam
