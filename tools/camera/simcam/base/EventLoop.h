#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

struct event_base;
struct event;

namespace simcam {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using Microseconds = std::chrono::microseconds;

/// The one thread on which all cameras of a process live: every socket, timer and state of a camera belongs
/// to it, so that none of them needs a lock.
class EventLoop {
 public:
  EventLoop();   ///< starts the thread; throws std::runtime_error when the system has no event mechanism
  ~EventLoop();  ///< runs what was posted before, then ends the thread
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Runs the task on the loop's thread, soon. Any thread; tasks keep their order.
  void Post(std::function<void()> task);

  /// Runs the task on the loop's thread and returns when it is done; at once on that thread itself.
  void Call(const std::function<void()>& task);

  event_base* base() const { return base_.get(); }

 private:
  struct FreeBase {
    void operator()(event_base* base) const;
  };
  struct FreeEvent {
    void operator()(event* e) const;
  };
  void RunTasks();

  std::unique_ptr<event_base, FreeBase> base_;
  std::unique_ptr<event, FreeEvent> wake_;
  std::mutex lock_;
  std::vector<std::function<void()>> tasks_;  // guarded by lock_
  std::thread thread_;
};

/// A timer of the loop. Made, started, stopped and destroyed on the loop's thread, where its action runs.
class Timer {
 public:
  Timer(EventLoop& loop, std::function<void()> action);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void StartOnce(Microseconds delay);
  void StartRepeating(Microseconds interval);
  void Stop();
  bool running() const;

 private:
  void Start(Microseconds delay);

  std::function<void()> action_;
  Microseconds interval_{0};  // 0: once
  event* event_;              // owned
};

}  // namespace simcam
