#pragma once

#include <utility>

#include "threads/StoppableThread.h"

namespace sarnevo {

/// The one door through which the library calls objects of the host. What a callback throws is dropped. No lock is
/// held across it but those that docs/stopping.md names.
///
/// @return false: the thread was let go while it was inside (a stop ran into its limit, or the callback itself ended
///         the object that called it), or is being ended, and @p call may not have been made at all. The caller then
///         returns without a further look at the driver, the sink or the allocator, which may be gone. Always true on the
///         host's own threads, and inside another call of the host: the outermost one says it.
/// @param evenIfLetGo  for the one thing that a thread still owes the host after it was let go: the call is made then,
///                     too.
template <typename Call>
bool CallHost(Call&& call, bool evenIfLetGo = false) noexcept {
  if (!own_thread::EnterHost(evenIfLetGo)) {
    return false;
  }
  try {
    std::forward<Call>(call)();
  } catch (...) {
    // The host's own affair; nothing of it crosses back.
  }
  return own_thread::LeaveHost();
}

}  // namespace sarnevo
