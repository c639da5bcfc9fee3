#pragma once

#include <string>

#include "device/IDebugMessage.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// The result of one operation as a value: filled in while it runs, reported at its end, if at all.
class CResultDef {
 public:
  /// @param level  the DebugLevel of the text
  /// @param code   0 for success
  /// @param text   empty when there is nothing to say
  CResultDef(u32 level, u32 code, const std::string& text);
  virtual ~CResultDef() = default;

  /// Writes the text to @p sink. Nothing happens without a text or a sink.
  /// @param thin  not 0: only when the sink's own count of repeated failures lets it pass
  void Report(IDebugMessage* sink, u8 thin) const;

  u32 level;
  u32 code;
  std::string text;
};

}  // namespace sarnevo
