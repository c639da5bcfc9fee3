#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "HeadSession.h"
#include "kolvex/IIPPTZApi.h"

namespace kolvex_console {

/// Moves a head as long as somebody wants it to. A wish holds for a second; then the head is stopped, whatever has
/// become of the browser, the network or the server's other threads: this has a thread of its own that needs
/// none of them.
///
/// A head moves on until it is told to stop. So a stop whose request failed is repeated.
class Head {
 public:
  /// @p api lives until this object has gone. @p stopped runs on the head's thread after each stop. @p mayMove: a
  /// server that was killed may have left the head moving, so it is stopped at once.
  Head(sarnevo::IIPPTZApi& api, std::function<void()> stopped, bool mayMove = false);
  /// Stops the head and gives the order a moment to reach the camera.
  ~Head();
  Head(const Head&) = delete;
  Head& operator=(const Head&) = delete;

  /// Any thread; returns at once. @p speed from 1 to 16.
  void Want(const kolvex_host::Movement& movement, int speed);
  void Stop();
  /// The library has reported that a request failed. Any thread.
  void NoteFailure() { failed_.store(true, std::memory_order_relaxed); }
  /// The name of the movement under way; empty when there is none.
  std::string Moving() const;

  static constexpr std::chrono::milliseconds kWishHolds{1000};

 private:
  using Clock = std::chrono::steady_clock;
  struct Wish {
    const kolvex_host::Movement* movement = nullptr;  // null: stop
    int speed = 0;
    bool operator==(const Wish&) const = default;
  };
  void Work();
  /// Sends what is wanted now.
  void Follow(const Wish& wish);
  void SendStop();
  void MakeSure();

  sarnevo::IIPPTZApi& api_;
  const std::function<void()> stopped_;
  mutable std::mutex lock_;
  std::condition_variable wake_;
  Wish wish_;                     // guarded by lock_
  Clock::time_point holdsUntil_;  // guarded by lock_
  bool ended_ = false;            // guarded by lock_
  // By the library's threads; read a moment later in any case.
  std::atomic<bool> failed_{false};
  Wish sent_;                     // head's thread only
  Clock::time_point lastStop_{};  // head's thread only
  int stops_;                     // head's thread only; further stops that may be sent after failures
  std::thread thread_;
};

}  // namespace kolvex_console
