#pragma once

#include <memory>

#include "kolvex/CDebugInfoIf.h"

namespace sarnevo {

/// One message on its way to the host; lives on the writer's stack while the sink looks at it.
class CDebugInfo final : public CDebugInfoIf {
 public:
  /// Copies @p text; null and the empty text both become null, as does one that there is no memory for.
  CDebugInfo(u8 level, const char* text);
  u8 GetLevel() const override { return level_; }
  const char* GetText() const override { return text_.get(); }

 private:
  u8 level_;
  std::unique_ptr<char[]> text_;
};

}  // namespace sarnevo
