#pragma once

#include <atomic>
#include <string>

#include "threads/CBaseThread.h"

namespace sarnevo {

/// A thread that does the same work again and again.
///
/// From the start of one tick to that of the next it takes the interval plus the length of the tick: no
/// fixed rate, so that a slow camera isn't asked more often than it answers.
class CTickThread : protected CBaseThread {
 public:
  /// @param intervalMs  milliseconds between two ticks; fixed.
  explicit CTickThread(u32 intervalMs) noexcept : interval_(intervalMs) {}

  /// As CBaseThread::Start. @p tickFirst: non-zero for a tick at once, 0 for the first one after an interval.
  bool Start(const std::string& name, u8 tickFirst) {
    tickFirst_.store(tickFirst, std::memory_order_relaxed);
    return CBaseThread::Start(name);
  }
  using CBaseThread::IsAlive;
  using CBaseThread::IsOwnThread;
  using CBaseThread::IsStopRequested;
  using CBaseThread::KeepAlive;
  using CBaseThread::RequestStop;
  /// As CBaseThread::Stop; a tick in progress finishes.
  using CBaseThread::Stop;

 protected:
  void Run() override {
    // The wait for the stop is both the pace and the test for a stop.
    if (tickFirst_.load(std::memory_order_relaxed) != 0) {
      Tick();
    }
    while (!AwaitStop(interval_)) {
      Tick();
    }
  }
  /// The periodic work, on the thread. Catches its own exceptions.
  virtual void Tick() = 0;

 private:
  const u32 interval_;
  // Written by Start. A running thread may meet a new value when a second Start on it fails; either will do.
  std::atomic<u8> tickFirst_{0};
};

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
