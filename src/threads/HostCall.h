#pragma once

#include <utility>

#include "platform/Thread.h"

namespace sarnevo {

/// The one door through which the library calls objects of the host.
///
/// Catches what a callback throws. When the calling thread was given up while it was inside (a stop ran
/// into its limit, or the callback itself stopped the object that called it), the thread ends right after
/// the callback: nothing behind CallHost runs, no destructor of the frames below runs, and no object of the
/// library is looked at, since it may be gone. So @p call and the frames up to the thread's body own no
/// resource across the call, and no lock is held, except what @p onLeave gives back.
///
/// @param call     runs the callback.
/// @param onLeave  runs before the thread ends on the spot; touches only its own captures, by value or on
///                 this thread's stack.
/// @return false when the callback threw.
template <typename Call, typename OnLeave>
bool CallHost(Call&& call, OnLeave&& onLeave) noexcept {
  platform::current_thread::EnterHost();
  bool done = true;
  try {
    std::forward<Call>(call)();
  } catch (...) {
    done = false;  // the host's own affair; nothing of it crosses back
  }
  if (!platform::current_thread::LeaveHost()) {
    std::forward<OnLeave>(onLeave)();
    platform::current_thread::Leave();
  }
  return done;
}

template <typename Call>
bool CallHost(Call&& call) noexcept {
  return CallHost(std::forward<Call>(call), [] {});
}

}  // namespace sarnevo
