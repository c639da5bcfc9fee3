#pragma once

#include "kolvex/Types.h"

/// Implemented by the host: the parameters of IIPCaptureDriver::Open, read only during that call. A null
/// text counts as an empty one, except for a numbered setting, where null means that it isn't set.
namespace sarnevo::ipcapture {

/// The device as the host has it on record.
class IIPDeviceInfo {
 public:
  virtual ~IIPDeviceInfo() = default;  ///< slot 0
  virtual void Slot1() {}              ///< slot 1, not called
  /// The device model's name.
  virtual const char* GetModel() = 0;  ///< slot 2
  /// Number of video channels.
  virtual u32 GetChannelCount() = 0;  ///< slot 3
  virtual void Slot4() {}             ///< slot 4, not called
  /// Number of digital inputs.
  virtual u32 GetInputCount() = 0;  ///< slot 5
  /// Number of digital outputs.
  virtual u32 GetOutputCount() = 0;  ///< slot 6
};

/// How the camera is reached.
class IIPConnectionInfo {
 public:
  virtual ~IIPConnectionInfo() = default;  ///< slot 0
  /// Dotted IPv4 address.
  virtual const char* GetAddress() = 0;  ///< slot 1
  /// HTTP port.
  virtual u16 GetPort() = 0;  ///< slot 2
  virtual void Slot3() {}     ///< slot 3, not called
  /// One of the Codec values.
  virtual u32 GetCodec() = 0;  ///< slot 4
  /// Copied.
  virtual const char* GetUserName() = 0;  ///< slot 5
  /// Copied; the copies are erased when the driver is deleted.
  virtual const char* GetPassword() = 0;  ///< slot 6
};

/// Everything that Open needs.
class IIPDriverParams {
 public:
  virtual ~IIPDriverParams() = default;  ///< slot 0
  /// What the device is; null counts as nothing known.
  virtual IIPDeviceInfo* GetDevice() = 0;  ///< slot 1
  /// How it is reached; null counts as nothing known.
  virtual IIPConnectionInfo* GetConnection() = 0;  ///< slot 2
  virtual void Slot3() {}                          ///< slot 3, not called
  /// A numbered setting (see CustomSetting), null when it isn't set.
  virtual const char* GetCustomSetting(u32 index) = 0;  ///< slot 4
};

}  // namespace sarnevo::ipcapture
