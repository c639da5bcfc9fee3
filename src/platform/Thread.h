#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Event.h"
#include "platform/Time.h"

namespace sarnevo::platform {

using ThreadId = std::uint32_t;

/// Never 0, and unique among the threads of all processes of the machine.
ThreadId CurrentThreadId() noexcept;

enum class ThreadPriority {
  Normal,
  /// A few steps above the thread that starts it; where the process may not raise priorities it stays as it is.
  AboveNormal,
};

/// A thread of the library, and the owner's handle to it.
///
/// The thread blocks all signals but those of its own faults, has a small stack of its own and carries @p name towards the
/// debugger. The handle is used by one owner thread at a time. Destroying or releasing the handle doesn't
/// stop the thread.
///
/// Forced end. A thread can't be killed soundly; it can only be left where it is while it stands in code
/// of the host (see threads/HostCall.h). Abandon() does that: from the moment it returns true the thread
/// touches nothing of the library's: when the host lets it return, it ends on the spot, without
/// unwinding. Everything else that a thread of ours blocks on is bounded and can be interrupted, which
/// the owner does first.
class Thread {
 public:
  Thread() noexcept;
  ~Thread();
  Thread(Thread&& other) noexcept;
  Thread& operator=(Thread&& other) noexcept;

  /// Starts a thread that runs @p body. False when none could be created; the handle is then empty. A
  /// handle that was recorded before is released. An exception out of @p body ends the thread quietly.
  bool Start(std::string_view name, std::function<void()> body,
             ThreadPriority priority = ThreadPriority::Normal) noexcept;

  /// A thread is recorded, running or ended.
  bool HasHandle() const noexcept;
  /// The recorded thread hasn't ended.
  bool IsAlive() const noexcept;
  /// The caller is the recorded thread.
  bool IsCurrent() const noexcept;

  /// Waits for the thread's end. An abandoned thread counts as ended. Failed without a thread, and when
  /// the caller is the thread itself.
  WaitResult Wait() noexcept;
  WaitResult Wait(Milliseconds timeout) noexcept;

  /// Gives the thread up while it stands in code of the host. Waits for up to @p moment until the thread
  /// ends or gets there, and then 10 ms more, so that the call has really reached the host's object. True
  /// when it has ended or is given up. On the thread itself, inside a call to the host, it always succeeds:
  /// the thread goes on in the host's code and ends when that returns.
  bool Abandon(Milliseconds moment) noexcept;

  /// Forgets the thread; it goes on running by itself.
  void Release() noexcept;

  struct Control;

 private:
  std::shared_ptr<Control> control_;
};

/// The calling thread's relation to code of the host; the machinery under threads/HostCall.h.
namespace current_thread {

/// The thread is about to enter code of the host. Calls nest.
void EnterHost() noexcept;
/// The host has returned. False when the thread was given up meanwhile: the caller then touches nothing
/// any more and calls Leave.
bool LeaveHost() noexcept;
/// The calling thread was given up and is still in code of the host.
bool IsAbandoned() noexcept;
/// Gives the calling thread up, as Thread::Abandon does. False outside of code of the host.
bool Abandon() noexcept;
/// Ends the calling, abandoned thread on the spot, without unwinding.
[[noreturn]] void Leave() noexcept;

}  // namespace current_thread

}  // namespace sarnevo::platform
