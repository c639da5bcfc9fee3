#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace sarnevo::test {

/// The calls that a fake object saw, one line each, written by any thread and compared as one text.
class Transcript {
 public:
  void Add(const std::string& line) {
    const std::lock_guard guard(lock_);
    text_ += line + "\n";
    changed_.notify_all();
  }

  std::string Text() const {
    const std::lock_guard guard(lock_);
    return text_;
  }

  /// Waits until the text has @p lines lines and gives it; after the limit, gives what is there.
  std::string WaitForLines(int lines, std::chrono::seconds limit = std::chrono::seconds{20}) const {
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, limit, [&] { return std::count(text_.begin(), text_.end(), '\n') >= lines; });
    return text_;
  }

 private:
  mutable std::mutex lock_;
  mutable std::condition_variable changed_;
  std::string text_;
};

}  // namespace sarnevo::test
