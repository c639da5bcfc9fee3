#pragma once

#include "kolvex/Types.h"
#include "platform/Event.h"
#include "platform/Time.h"

namespace sarnevo {

/// All bits set: a wait without limit.
inline constexpr u32 kNoTimeout = 0xFFFF'FFFFu;

/// A time-out as the thread classes take it, in milliseconds, in the form of the platform layer.
constexpr platform::Milliseconds TimeoutOf(u32 milliseconds) noexcept {
  return milliseconds == kNoTimeout ? platform::Milliseconds::max() : platform::Milliseconds{milliseconds};
}

/// One waitable event. Any thread may use it; it outlives its waiters.
///
/// An auto-reset event is spent by the wait that it ends, a manual-reset one stays set until Reset.
class CEvent {
 public:
  /// Longest number of events in one WaitForAny.
  static constexpr u32 kMaxEvents = platform::Event::kMaxWait;

  /// @param initialState        non-zero: set from the start.
  /// @param manualReset         non-zero: manual reset.
  /// @param securityAttributes  null.
  CEvent(u8 initialState, u8 manualReset, void* /*securityAttributes*/) noexcept
      : event_(initialState != 0, manualReset != 0) {}
  virtual ~CEvent() = default;
  CEvent(const CEvent&) = delete;
  CEvent& operator=(const CEvent&) = delete;

  /// Waits up to @p timeoutMs milliseconds. True only when the event ended the wait.
  bool Wait(u32 timeoutMs) noexcept { return event_.Wait(TimeoutOf(timeoutMs)); }
  /// Always true, as Reset is.
  bool Set() noexcept {
    event_.Set();
    return true;
  }
  bool Reset() noexcept {
    event_.Reset();
    return true;
  }

  /// Waits until any of @p count events is set. Gives the lowest index of those that are, so that the order
  /// in the array is a priority, and spends only that one. -1 on a time-out, for no or more than kMaxEvents
  /// events, and when one of them is null.
  static i32 WaitForAny(CEvent** events, u32 count, u32 timeoutMs) noexcept;

 private:
  platform::Event event_;
};

/// A manual-reset event that isn't set at first.
class CManualEvent : public CEvent {
 public:
  CManualEvent() noexcept : CEvent(0, 1, nullptr) {}
};

}  // namespace sarnevo
