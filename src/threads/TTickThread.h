#pragma once

#include "threads/CTickThread.h"

namespace sarnevo {

/// A tick thread that calls an operation of another object; without one it does nothing.
template <typename T>
class TTickThread : public CTickThread {
 public:
  using CTickThread::CTickThread;

  // Set by the target's constructor and then constant.
  T* target = nullptr;  // not owned; outlives the running thread
  void (T::*method)() = nullptr;

 protected:
  void Tick() override {
    if (method != nullptr && target != nullptr) {
      (target->*method)();
    }
  }
};

}  // namespace sarnevo
