#pragma once

#include "device/RepeatCounter.h"
#include "kolvex/Types.h"

/// Where a class sends its debug messages: the driver, or an object that passes them on to it. In
/// the global namespace.
class IDebugMessage {
 public:
  virtual ~IDebugMessage() = default;

  /// Sends one message at a sarnevo::DebugLevel, printf-style. Any thread may call.
  [[gnu::format(printf, 3, 4)]] virtual void DebugMessage(sarnevo::u32 level, const char* format, ...) = 0;

  /// Counts one more failure of a kind that keeps coming, and says whether to write it. All writers that
  /// thin out their messages towards this object share the count. Any thread.
  bool ShouldReport() noexcept { return repeats_.ShouldReport(); }

 private:
  sarnevo::RepeatCounter repeats_;
};
