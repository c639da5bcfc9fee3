#include "simcam/stream/EncoderPool.h"

#include <utility>

namespace simcam {

EncoderPool::EncoderPool(unsigned threads) {
  for (unsigned i = 0; i < threads; ++i) {
    threads_.emplace_back([this] { Run(); });
  }
}

EncoderPool::~EncoderPool() {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    ending_ = true;
    tasks_.clear();
  }
  ready_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

void EncoderPool::Submit(std::function<void()> task) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    tasks_.push_back(std::move(task));
  }
  ready_.notify_one();
}

void EncoderPool::Run() {
  std::unique_lock<std::mutex> guard(lock_);
  for (;;) {
    ready_.wait(guard, [this] { return ending_ || !tasks_.empty(); });
    if (ending_) {
      return;
    }
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    guard.unlock();
    task();
    guard.lock();
  }
}

}  // namespace simcam
