#pragma once

#include "io/CGroupDigitalIO.h"

namespace sarnevo {

/// Digital inputs and outputs of group 1 cameras.
class CKolvexGroup1DigitalIO final : public CGroupDigitalIO {
 public:
  CKolvexGroup1DigitalIO(Device* driver, u32 pollIntervalMs, u32 stopTimeoutMs = kStopTimeoutMs);
};

}  // namespace sarnevo
