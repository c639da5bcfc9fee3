#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "hub/Camera.h"

namespace kolvex_console {

/// A line of the log that the page shows.
struct LogLine {
  std::uint64_t number = 0;  ///< counts up from 1
  std::chrono::system_clock::time_point time{};
  std::string camera;
  std::string text;
};

/// All cameras by name, in their order, and the log. Any thread.
class Site {
 public:
  using Entry = std::pair<std::string, std::shared_ptr<Camera>>;

  /// @p wake is called after each change and each picture, on the thread that made it.
  explicit Site(std::function<void()> wake) : wake_(std::move(wake)) {}

  /// False when the name is taken.
  bool Add(const std::string& name, std::shared_ptr<Camera> camera);
  /// Null when there is none; the camera's streams end.
  std::shared_ptr<Camera> Remove(const std::string& name);
  /// False when the new name is taken or the old one unknown.
  bool Rename(const std::string& from, const std::string& to);
  std::shared_ptr<Camera> Find(const std::string& name) const;
  std::vector<Entry> Cameras() const;

  void Log(const std::string& camera, const std::string& text);
  /// The lines after @p number, at most the latest 200.
  std::vector<LogLine> LinesAfter(std::uint64_t number) const;

  /// A picture has come.
  void Wake() const { wake_(); }
  /// A camera's state has changed.
  void Touch() {
    version_.fetch_add(1, std::memory_order_release);
    wake_();
  }
  /// Grows with each change of anything but pictures: who has seen this number needn't look.
  std::uint64_t Version() const { return version_.load(std::memory_order_acquire); }

 private:
  const std::function<void()> wake_;
  // Written after the change, read before the look: a look may come too often, never too seldom.
  std::atomic<std::uint64_t> version_{1};
  mutable std::mutex lock_;
  std::vector<Entry> cameras_;   // guarded by lock_
  std::deque<LogLine> lines_;    // guarded by lock_
  std::uint64_t lineCount_ = 0;  // guarded by lock_
};

}  // namespace kolvex_console
