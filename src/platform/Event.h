#pragma once

#include <memory>
#include <span>

#include "platform/Time.h"

namespace sarnevo::platform {

/// How a wait ended.
enum class WaitResult { Signalled, TimedOut, Failed };

/// A waitable event. Costs no descriptor. Safe for use from any thread; the object outlives its waiters.
///
/// An auto-reset event is consumed by exactly one wait that ends with it; a manual-reset event stays set
/// until Reset. A failure to create it (no memory) leaves an object whose operations fail.
class Event {
 public:
  /// Longest number of events that WaitAny takes.
  static constexpr std::size_t kMaxWait = 63;

  explicit Event(bool initiallySet = false, bool manualReset = false) noexcept;
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  bool IsValid() const noexcept { return impl_ != nullptr; }

  /// False only when the event is invalid.
  bool Set() noexcept;
  bool Reset() noexcept;

  /// Waits for up to @p timeout; 0 only looks.
  WaitResult Wait(Milliseconds timeout = Milliseconds::max()) noexcept;

  /// Waits until any event of @p events is set and gives the lowest index of those that are; only that
  /// one is consumed. -1 on a time-out, when there are none or more than kMaxWait events, or when one of
  /// them is null or invalid.
  static int WaitAny(std::span<Event* const> events, Milliseconds timeout) noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace sarnevo::platform
