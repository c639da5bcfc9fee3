#include "web/Desk.h"

namespace kolvex_console {

namespace {

constexpr std::size_t kMostWaiting = 32;

}  // namespace

bool Desk::Put(std::function<void()> job) {
  {
    const std::lock_guard guard(lock_);
    if (ended_ || jobs_.size() >= kMostWaiting) {
      return false;
    }
    jobs_.push_back(std::move(job));
  }
  wake_.notify_all();
  return true;
}

void Desk::End() {
  std::deque<std::function<void()>> dropped;  // what they hold goes without the lock
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
    dropped.swap(jobs_);
  }
  wake_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

bool Desk::Pause(std::chrono::milliseconds limit) {
  std::unique_lock guard(lock_);
  return wake_.wait_for(guard, limit, [this] { return ended_; });
}

void Desk::Work() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock guard(lock_);
      wake_.wait(guard, [this] { return ended_ || !jobs_.empty(); });
      if (ended_) {
        return;
      }
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

}  // namespace kolvex_console
