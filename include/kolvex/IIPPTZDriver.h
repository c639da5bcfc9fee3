#pragma once

#include "kolvex/IIPPTZApi.h"

namespace sarnevo {

/// Gives out the PTZ objects of a camera's channels. Taken from IIPCaptureDriverEx::GetPTZDriver; belongs
/// to the driver and is void from Close on. Any thread may call.
class IIPPTZDriver {
 public:
  virtual ~IIPPTZDriver() = default;  ///< slot 0
  /// The channel's object, one and the same at each call. Built at the first call, which asks the camera for its
  /// serial protocol on the calling thread, a second time when the first request failed: usually a moment, at the
  /// most 30 s, and as long again after the first call for another channel. Every later call returns at once.
  /// Null for a channel that the device doesn't have, for cameras without PTZ (group 2), without the numbered
  /// setting that holds the hardware address, and when there is no memory or no thread.
  virtual IIPPTZApi* GetPTZApi(u32 channel) = 0;  ///< slot 1
};

/// The newer form; the same object.
class IIPPTZDriverEx : public IIPPTZDriver {
 public:
  /// The object of GetPTZApiEx.
  IIPPTZApi* GetPTZApi(u32 channel) override { return GetPTZApiEx(channel); }
  /// GetPTZApi with the newer interface.
  virtual IIPPTZApiEx* GetPTZApiEx(u32 channel) = 0;  ///< slot 2
};

}  // namespace sarnevo
