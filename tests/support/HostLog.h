#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/Eventually.h"

namespace kolvex_test {

/// What the host's objects saw, a line per call, from any thread.
class HostLog {
 public:
  void Add(std::string line) {
    const std::lock_guard guard(lock_);
    lines_.push_back(std::move(line));
    changed_.notify_all();
  }

  /// All lines so far, each with its end.
  std::string Text() const {
    const std::lock_guard guard(lock_);
    std::string text;
    for (const std::string& line : lines_) {
      text += line + "\n";
    }
    return text;
  }

  std::vector<std::string> Lines() const {
    const std::lock_guard guard(lock_);
    return lines_;
  }

  /// Lines so far that begin with @p begin.
  std::size_t Count(std::string_view begin) const {
    const std::lock_guard guard(lock_);
    return CountLocked(begin);
  }

  /// Waits until @p count lines begin with @p begin. False when @p limit runs out.
  bool WaitFor(std::string_view begin, std::size_t count = 1,
               std::chrono::milliseconds limit = kWaitLimit) const {
    std::unique_lock guard(lock_);
    return changed_.wait_for(guard, limit, [&] { return CountLocked(begin) >= count; });
  }

  void Clear() {
    const std::lock_guard guard(lock_);
    lines_.clear();
  }

 private:
  std::size_t CountLocked(std::string_view begin) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(lines_, [&](const std::string& line) { return line.starts_with(begin); }));
  }

  mutable std::mutex lock_;
  mutable std::condition_variable changed_;
  std::vector<std::string> lines_;  // under lock_
};

}  // namespace kolvex_test
