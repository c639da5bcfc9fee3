#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kolvex_console {

/// A thread for what takes time, one job after the other. Jobs that haven't begun at its end are dropped.
class Desk {
 public:
  Desk() : thread_([this] { Work(); }) {}
  ~Desk() { End(); }
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  /// Any thread. False, and the job is dropped, when too many wait already or the desk has ended.
  bool Put(std::function<void()> job);
  /// Waits for the job under way. Not from a job.
  void End();
  /// Waits for up to @p limit; true when the desk is to end meanwhile. From a job.
  bool Pause(std::chrono::milliseconds limit);

 private:
  void Work();

  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> jobs_;  // guarded by lock_
  bool ended_ = false;                      // guarded by lock_
  std::thread thread_;
};

}  // namespace kolvex_console
