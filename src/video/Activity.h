#pragma once

#include <cstdint>

#include "kolvex/Types.h"
#include "platform/Clock.h"
#include "platform/Time.h"
#include "threads/COptex.h"

namespace sarnevo {

/// When a channel last gave a sign of life. Any thread may call.
class Activity {
 public:
  /// UTC in units of 100 ns since 1601; it may jump.
  using Clock = u64 (*)() noexcept;

  explicit Activity(Clock clock = &platform::UtcFileTime) noexcept : clock_(clock) {}

  /// The channel gives a sign of life now.
  void TouchActivity() noexcept {
    const u64 now = clock_();
    const COptexGuard guard(activityLock_);
    lastActivity_ = now;
  }

  /// The last sign of life is no older than @p timeout. False until the first; true when the clock was put
  /// back to before it.
  bool IsActive(platform::Milliseconds timeout) noexcept {
    constexpr std::int64_t kTicksPerMillisecond = 10'000;
    const u64 now = clock_();
    const COptexGuard guard(activityLock_);
    return static_cast<std::int64_t>(now - lastActivity_) / kTicksPerMillisecond <= timeout.count();
  }

 private:
  const Clock clock_;
  COptex activityLock_;
  u64 lastActivity_ = 0;  // under activityLock_
};

}  // namespace sarnevo
