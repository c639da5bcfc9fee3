#pragma once

#include "kolvex/IIPPTZApi.h"

namespace sarnevo {

/// Gives out the PTZ objects of a camera's channels. Taken from IIPCaptureDriverEx::GetPTZDriver; belongs
/// to the driver and is void from Close on. Any thread may call.
class IIPPTZDriver {
 public:
  virtual ~IIPPTZDriver() = default;  // slot 0
  /// The channel's object, one and the same at each call. Built at the first call, which asks the camera
  /// for its serial protocol and can take seconds. Null for a channel that the device doesn't have, for
  /// cameras without PTZ (group 2), and without the numbered setting that holds the hardware address.
  virtual IIPPTZApi* GetPTZApi(u32 channel) = 0;  // slot 1
};

/// The newer form; the same object.
class IIPPTZDriverEx : public IIPPTZDriver {
 public:
  IIPPTZApi* GetPTZApi(u32 channel) override { return GetPTZApiEx(channel); }
  /// GetPTZApi with the newer interface.
  virtual IIPPTZApiEx* GetPTZApiEx(u32 channel) = 0;  // slot 2
};

}  // namespace sarnevo
