#pragma once

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
  void TouchActivity() noexcept;
  /// The last sign of life is no older than @p timeout. False until the first; true when the clock was put
  /// back to before it.
  bool IsActive(platform::Milliseconds timeout) noexcept;

 private:
  const Clock clock_;
  COptex activityLock_;
  u64 lastActivity_ = 0;  // under activityLock_
};

}  // namespace sarnevo
