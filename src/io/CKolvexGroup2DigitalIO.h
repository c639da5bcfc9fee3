#pragma once

#include "io/CGroupDigitalIO.h"

namespace sarnevo {

/// Digital inputs and outputs of group 2 cameras.
class CKolvexGroup2DigitalIO final : public CGroupDigitalIO {
 public:
  CKolvexGroup2DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs = kStopTimeoutMs);
};

}  // namespace sarnevo
