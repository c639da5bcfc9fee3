#pragma once

#include "driver/IDebugMessage.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// How the list of stored positions commands the camera, and where it sends its messages.
///
/// A slot is the camera's own number for a position, counted from 0. Each command goes to the camera at
/// once, on the calling thread, and can block for the time of a request; true says that the camera
/// answered. One thread at a time.
class IPrepositionComm : public virtual IDebugMessage {
 public:
  /// The camera stores where it stands. Cameras of serial protocol 1 store at the slot last gone to,
  /// whatever @p slot is.
  virtual bool StorePreset(u32 slot) = 0;
  /// @param option  passed through from the host; no camera knows it.
  virtual bool GotoPreset(u32 slot, u32 option) = 0;
  /// The camera forgets a position. Cameras of serial protocol 1 forget all of them.
  virtual bool DeletePreset(u32 slot) = 0;
};

}  // namespace sarnevo
