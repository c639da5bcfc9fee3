#pragma once

#include "device/IDebugMessage.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// The camera, as far as stored positions go, and the way out for messages. Each command goes to the camera
/// at once, on the caller's thread, which may wait for the camera's HTTP time-out; false when it couldn't be sent.
/// Slots count from 0. Commands for one object are given by one thread at a time.
class IPrepositionComm : public virtual IDebugMessage {
 public:
  /// The camera stores where it looks now.
  virtual bool StorePreset(u32 slot) = 0;
  /// The camera moves to what is stored. @p option is passed through from the host.
  virtual bool GotoPreset(u32 slot, u32 option) = 0;
  /// The camera forgets what is stored; a camera of protocol 1 forgets all slots.
  virtual bool DeletePreset(u32 slot) = 0;
};

}  // namespace sarnevo
