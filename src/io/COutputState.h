#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// One request for an output, on its way through the queue.
class COutputState {
 public:
  COutputState(u32 outputIndex, u32 ioState) noexcept : index(outputIndex), state(ioState) {}
  virtual ~COutputState() = default;

  const u32 index;  // from 0
  const u32 state;  // an IOState
};

}  // namespace sarnevo
