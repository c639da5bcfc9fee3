#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>

#include "kolvex/Types.h"
#include "threads/CBaseThread.h"
#include "threads/CEvent.h"
#include "threads/COptex.h"
#include "threads/StopPatience.h"

namespace sarnevo {

/// A thread that works off a queue of objects, one at a time and in order, and throws away what waits when
/// it is stopped.
///
/// Any thread may post. Start, Stop and destruction belong to one thread at a time, as in CBaseThread.
template <typename T>
class CQueueThread : protected CBaseThread {
 public:
  /// How long a stop waits for the item in progress, milliseconds.
  static constexpr u32 kStopTimeoutMs = u32{stop_patience::kDigitalIO.count()};

  explicit CQueueThread(u32 stopTimeoutMs = kStopTimeoutMs) : stopTimeout_(stopTimeoutMs) {}
  ~CQueueThread() override { CQueueThread::Stop(); }

  /// As CBaseThread::Start.
  bool Start(const std::string& name) override {
    newItemEvent_.Reset();
    return CBaseThread::Start(name);
  }

  /// As CBaseThread::Stop. What is queued is destroyed unprocessed, and from here on nothing is accepted.
  bool Stop() {
    RequestStop();
    return CBaseThread::Stop(stopTimeout_);
  }

  /// The first half of Stop, which waits for nothing. Any thread may call.
  void RequestStop() {
    // Before the purge, so that nothing gets into the queue after it.
    stopEvent.Set();
    Purge();
  }

  using CBaseThread::IsAlive;
  using CBaseThread::IsOwnThread;
  using CBaseThread::KeepAlive;

  /// Takes @p item, in every case. False after Stop. With @p maxItems, the oldest items make room, so that
  /// the newest @p maxItems are left; 0 is no limit.
  bool Post(T* item, u32 maxItems) {
    std::unique_ptr<T> owned(item);
    const COptexGuard guard(queueLock_);
    if (stopEvent.Wait(0)) {
      return false;
    }
    if (maxItems != 0) {
      while (queue_.size() > maxItems - 1) {
        queue_.pop_front();
      }
    }
    queue_.push_back(std::move(owned));
    newItemEvent_.Set();
    return true;
  }

  /// Destroys all that is queued.
  void Purge() {
    const COptexGuard guard(queueLock_);
    queue_.clear();
  }

 protected:
  /// Does one item, on the thread and without a lock. What it throws is dropped.
  virtual void ProcessItem(T* item) = 0;

  void Run() override {
    // A safety net: a stop sets its event, which is waited for as well.
    constexpr u32 kLookMs = 1000;
    std::array<CEvent*, 2> events{&stopEvent, &newItemEvent_};
    while (!IsStopRequested()) {
      if (CEvent::WaitForAny(events.data(), static_cast<u32>(events.size()), kLookMs) == 1) {
        WorkOff();
      }
    }
  }

 private:
  std::unique_ptr<T> Take() {
    const COptexGuard guard(queueLock_);
    if (queue_.empty()) {
      return nullptr;
    }
    std::unique_ptr<T> item = std::move(queue_.front());
    queue_.pop_front();
    return item;
  }

  void WorkOff() {
    // Asked first: a thread that was let go has no share in what its successor is asked for.
    while (!IsStopRequested()) {
      const std::unique_ptr<T> item = Take();
      if (!item || IsStopRequested()) {
        return;
      }
      try {
        ProcessItem(item.get());
      } catch (...) {
        // One bad item doesn't end the thread.
      }
    }
  }

  const u32 stopTimeout_;
  CEvent newItemEvent_{0, 0, nullptr};
  COptex queueLock_;
  std::deque<std::unique_ptr<T>> queue_;  // guarded by queueLock_
};

}  // namespace sarnevo
