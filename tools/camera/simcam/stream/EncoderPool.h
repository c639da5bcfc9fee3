#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace simcam {

/// The threads that draw and encode, so that the loop's thread is free to send. Any thread may submit.
class EncoderPool {
 public:
  explicit EncoderPool(unsigned threads);
  ~EncoderPool();  ///< waits for the tasks under way and drops those that wait
  EncoderPool(const EncoderPool&) = delete;
  EncoderPool& operator=(const EncoderPool&) = delete;

  void Submit(std::function<void()> task);

 private:
  void Run();

  std::mutex lock_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> tasks_;  // guarded by lock_
  bool ending_ = false;                      // guarded by lock_
  std::vector<std::thread> threads_;
};

}  // namespace simcam
