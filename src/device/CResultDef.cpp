#include "device/CResultDef.h"

namespace sarnevo {

CResultDef::CResultDef(u32 levelGiven, u32 codeGiven, const std::string& textGiven)
    : level(levelGiven), code(codeGiven), text(textGiven) {}

void CResultDef::Report(IDebugMessage* sink, u8 thin) const {
  if (text.empty() || sink == nullptr) {
    return;
  }
  if (thin != 0 && !sink->ShouldReport()) {
    return;
  }
  // As an argument: the text holds a path, and a path may hold a percent sign.
  sink->DebugMessage(level, "%s", text.c_str());
}

}  // namespace sarnevo
