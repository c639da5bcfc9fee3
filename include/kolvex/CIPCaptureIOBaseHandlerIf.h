#pragma once

#include <array>
#include <string>

#include "kolvex/Types.h"

namespace sarnevo {

/// A record of the I/O side's settings. The host defines what most of it means; the driver leaves it empty.
struct CameraIOSettings {
  std::array<std::string, 35> texts;  ///< empty
  u32 inputCount = 0;                 ///< of the device
  u32 outputCount = 0;                ///< of the device
  u32 interval = 0;                   ///< 1000 in the driver's record
  std::array<u32, 12> numbers{};      ///< 0
  std::array<u8, 8> bytes{};          ///< 0
};

/// Describes the I/O side of one capture driver. All that it gives belongs to it and is invalid after the driver's
/// Close. Any thread may call.
class CIPCaptureIOBaseHandlerIf {
 public:
  virtual ~CIPCaptureIOBaseHandlerIf() = default;  ///< slot 0
  virtual const char* GetDriverName() = 0;         ///< slot 1
  /// The camera's HTTP port.
  virtual u16 GetPort() = 0;                     ///< slot 2
  virtual const std::string& GetAddress() = 0;   ///< slot 3
  virtual const std::string& GetUserName() = 0;  ///< slot 4
  virtual const std::string& GetPassword() = 0;  ///< slot 5
  virtual CameraIOSettings* GetSettings() = 0;   ///< slot 6
  /// Sends a debug message of the driver, printf-style, at a DebugLevel.
  [[gnu::format(printf, 3, 4)]] virtual void WriteDebug(u32 level, const char* format, ...) = 0;  ///< slot 7
};

}  // namespace sarnevo
