#pragma once

#include "kolvex/Types.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: hears how a capability query ended. It lives from InitCapabilityQuery until
/// UninitCapabilityQuery has returned. An exception is caught and dropped.
///
/// Called on the query's own thread; OnQueryFailed also inside StartCapabilityQuery, on its caller's thread,
/// when the address answers like no camera of the family. Either may call UninitCapabilityQuery.
class ICapabilityObserver {
 public:
  virtual ~ICapabilityObserver() = default;  ///< slot 0
  virtual void Slot1() {}                    ///< slot 1, not called
  /// The host's IIPCapabilities object is filled.
  virtual void OnQueryDone() = 0;  ///< slot 2
  /// @param level  a QueryFailure
  /// @param text   what failed; read only during the call
  virtual void OnQueryFailed(u32 level, const char* text) = 0;  ///< slot 3
};

}  // namespace sarnevo::ipcapture
