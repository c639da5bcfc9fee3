#pragma once

#include <string>

#include "kolvex/Types.h"

/// A camera's connection data and the way out for debug messages, as the objects that talk to it need
/// them. In the global namespace. Any thread may call; texts are copies.
class IIPDeviceParams {
 public:
  virtual ~IIPDeviceParams() = default;      ///< slot 0
  virtual std::string GetDeviceModel() = 0;  ///< slot 1
  /// Dotted IPv4 address.
  virtual std::string GetAddress() = 0;  ///< slot 2
  /// HTTP port.
  virtual sarnevo::u16 GetPort() = 0;     ///< slot 3
  virtual std::string GetUserName() = 0;  ///< slot 4
  virtual std::string GetPassword() = 0;  ///< slot 5
  /// Sends one message at a sarnevo::DebugLevel, printf-style.
  [[gnu::format(printf, 3, 4)]] virtual void DebugMessage(sarnevo::u32 level, const char* format,
                                                          ...) = 0;  ///< slot 6
};
