#pragma once

#include "kolvex/Types.h"

/// The state of one channel's lens. In the global namespace. Flags are 0 for automatic and not 0
/// for manual; only the channel's PTZ thread reads and writes them.
class IIPParams {
 public:
  virtual ~IIPParams() = default;  ///< slot 0
  /// The channel, counted from 0.
  virtual sarnevo::u32 GetChannel() = 0;               ///< slot 1
  virtual sarnevo::u8 GetIrisManual() = 0;             ///< slot 2
  virtual void SetIrisManual(sarnevo::u8 value) = 0;   ///< slot 3
  virtual sarnevo::u8 GetFocusManual() = 0;            ///< slot 4
  virtual void SetFocusManual(sarnevo::u8 value) = 0;  ///< slot 5
};
