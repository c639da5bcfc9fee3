#pragma once

#include <string>

#include "kolvex/Types.h"

namespace sarnevo {

/// One entry of a preset file.
struct PrepositionRecord {
  std::wstring name;
  u32 slot = 0;  // the camera's own number of the position, from 0
};

}  // namespace sarnevo
