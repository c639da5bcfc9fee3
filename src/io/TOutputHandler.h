#pragma once

#include "kolvex/Types.h"
#include "threads/CQueueThread.h"

namespace sarnevo {

/// One request for an output, on its way through the queue.
class COutputState {
 public:
  COutputState(u32 outputIndex, u32 ioState) noexcept : index(outputIndex), state(ioState) {}
  virtual ~COutputState() = default;

  const u32 index;  // from 0
  const u32 state;  // an IOState
};

/// The queue of output requests, which calls an operation of another object for each; without one it does
/// nothing.
template <typename T>
class TOutputHandler : public CQueueThread<COutputState> {
 public:
  using CQueueThread::CQueueThread;

  /// Queues a request. False after Stop.
  bool PostOutput(u32 index, u32 state) { return Post(new COutputState(index, state), 0); }

  // Set by the target's constructor and then constant.
  T* target = nullptr;  // not owned; outlives the running thread
  void (T::*method)(u32 index, u32 state) = nullptr;

 protected:
  void ProcessItem(COutputState* item) override {
    if (method != nullptr && target != nullptr && item != nullptr) {
      (target->*method)(item->index, item->state);
    }
  }
};

}  // namespace sarnevo
