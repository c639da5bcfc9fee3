#pragma once

#include "platform/CriticalSection.h"
#include "platform/Event.h"
#include "platform/Time.h"

namespace sarnevo {

/// How a stop that has waited long enough gets a channel's worker out of what it blocks on: the one network
/// object that it uses at the moment, or a pause.
///
/// Once interrupted the gate stays so until Reset: what is watched later is interrupted at once, and pauses
/// end. Interrupt may come from any thread; the rest is the worker's, or the stopping thread's behind the
/// worker's end.
class InterruptGate {
 public:
  /// From now on Interrupt calls @p Method of @p object, until Unwatch. One object at a time.
  template <auto Method, typename Object>
  void Watch(Object& object) noexcept {
    Watch(&object, [](void* watched) { (static_cast<Object*>(watched)->*Method)(); });
  }
  /// Behind this the object is never interrupted again and may be destroyed.
  void Unwatch() noexcept { Watch(nullptr, nullptr); }

  /// Waits for @p duration. A plain stop doesn't end it; Interrupt does.
  void Pause(platform::Milliseconds duration) noexcept;

  void Interrupt() noexcept;
  /// While no worker runs.
  void Reset() noexcept { interrupted_.Reset(); }

 private:
  using Action = void (*)(void*);
  void Watch(void* object, Action interrupt) noexcept;

  platform::CriticalSection lock_;
  void* watched_ = nullptr;     // under lock_
  Action interrupt_ = nullptr;  // under lock_
  platform::Event interrupted_{false, true};
};

}  // namespace sarnevo
