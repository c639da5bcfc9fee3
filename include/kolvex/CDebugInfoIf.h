#pragma once

#include "kolvex/Types.h"

/// One debug message on its way to the host. Lives only during IDebugInfoSink::OnDebugInfo: a host that
/// wants to keep the text copies it in that call. In the global namespace.
class CDebugInfoIf {
 public:
  virtual ~CDebugInfoIf() = default;  ///< slot 0
  /// A sarnevo::DebugLevel.
  virtual sarnevo::u8 GetLevel() const = 0;  ///< slot 1
  /// The finished text, or null when the message is empty.
  virtual const char* GetText() const = 0;  ///< slot 2
};
