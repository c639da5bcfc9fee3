#pragma once

#include "kolvex/CDebugInfoIf.h"

namespace sarnevo {

/// One message on its way to the host; lives on the writer's stack while the sink looks at it.
class CDebugInfo final : public CDebugInfoIf {
 public:
  /// @param text  outlives this object; null and the empty text are both null to the host.
  CDebugInfo(u8 level, const char* text) noexcept
      : level_(level), text_(text != nullptr && *text != '\0' ? text : nullptr) {}
  u8 GetLevel() const override { return level_; }
  const char* GetText() const override { return text_; }

 private:
  const u8 level_;
  const char* const text_;
};

}  // namespace sarnevo
