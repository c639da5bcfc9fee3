#pragma once

#include <cstddef>
#include <span>

#include "platform/Time.h"

namespace sarnevo::platform {

/// A waitable event. Costs neither a descriptor nor memory of the heap. Safe for use from any thread; the object
/// outlives its waiters.
///
/// An auto-reset event is consumed by exactly one wait that ends with it; a manual-reset event stays set
/// until Reset.
class Event {
 public:
  /// Longest number of events that WaitAny takes.
  static constexpr std::size_t kMaxWait = 63;

  explicit Event(bool initiallySet = false, bool manualReset = false) noexcept
      : set_(initiallySet), manualReset_(manualReset) {}
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set() noexcept;
  void Reset() noexcept;

  /// Waits for up to @p timeout; 0 only looks. False when the event wasn't set in that time.
  bool Wait(Milliseconds timeout = Milliseconds::max()) noexcept;

  /// Waits until any event of @p events is set and gives the lowest index of those that are; only that
  /// one is consumed. -1 on a time-out, when there are none or more than kMaxWait events, or when one of
  /// them is null.
  static int WaitAny(std::span<Event* const> events, Milliseconds timeout) noexcept;

 private:
  struct Place;
  static int TakeFirst(std::span<Event* const> events) noexcept;

  bool set_;
  const bool manualReset_;
  Place* waiting_ = nullptr;  // of each thread that waits
};

}  // namespace sarnevo::platform
