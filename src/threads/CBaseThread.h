#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "kolvex/Types.h"
#include "platform/Thread.h"
#include "threads/CEvent.h"

namespace sarnevo {

/// A thread with a stop event and a stop that is bounded in time.
///
/// An object is idle, running, or finished (Run has returned); it may be started again as often as wanted.
/// Start, Stop and destruction belong to one thread at a time, the owner's; in addition the running thread
/// may call Stop, and destroy the object from inside a call to the host. Run is virtual, so a derived class
/// or its owner stops the thread before the derived part goes: the destructor here only catches a thread
/// that is on its way out.
///
/// How a thread is ended that doesn't come when it is called. Ending it wherever it stands is no choice: it
/// would leave locks held and buffers torn, in the process of the host. So Stop goes step by step:
///
/// 1. It waits for its time-out. A thread that looks at its stop event ends here.
/// 2. It calls the owner's interrupt, which makes the thread's call to the camera fail at once, from
///    outside. The thread then unwinds in order, gives back what it holds and sees the stop event. The
///    interrupt is repeated, since the thread may have been on the way into its next call.
/// 3. What is left is a callback of the host that doesn't return. There the thread holds no lock and owns
///    nothing (see HostCall.h), so it is given up: Stop returns, the object may go, and the thread, should
///    the host ever return to it, ends on the spot without a look at anything of ours. An atomic exchange
///    decides between "returned" and "given up", so that exactly one of them happens.
///
/// Steps 2 and 3 together take less than 100 ms. A thread that is neither in the host nor gets out of its
/// call by the interrupt is in a bounded call of ours, name it a defect; Stop then waits on for the call's
/// own end, since returning would let the owner free what the thread still uses.
class CBaseThread {
 public:
  CBaseThread() noexcept;
  virtual ~CBaseThread();
  CBaseThread(const CBaseThread&) = delete;
  CBaseThread& operator=(const CBaseThread&) = delete;

  /// Clears the stop event in any case; then starts a thread that runs Run. False when one is alive (which
  /// then goes on, under its old name) or can't be made. @p name is for the debugger.
  virtual bool Start(const std::string& name);

  /// Sets the stop event and waits for the thread's end, up to @p timeoutMs; then ends it by force, which
  /// isn't reported. True also when there is no thread. False only on the thread itself, which goes on
  /// until Run sees the stop event.
  virtual bool Stop(u32 timeoutMs);

  /// Sets the stop event and nothing else. Any thread may call.
  void RequestStop() noexcept { stopEvent.Set(); }
  /// Since the last Start. For work that comes in parts.
  bool IsStopRequested() noexcept { return stopEvent.Wait(0); }

  /// Makes a blocking call of the running thread fail at once. Called by Stop, on its caller's thread, any
  /// number of times and at any moment between Start and the thread's end; doesn't block or throw. Set
  /// while no thread runs.
  void SetInterrupt(std::function<void()> interrupt) { interrupt_ = std::move(interrupt); }

  /// The caller is the running thread. Any thread may ask.
  bool IsOwnThread() const noexcept;

 protected:
  /// The body of the thread: returns soon after the stop event is set.
  virtual void Run() = 0;

  bool IsAlive() const noexcept { return thread_.IsAlive(); }

  /// Set by Stop until the next Start.
  CManualEvent stopEvent;

 private:
  void EndByForce();
  void CloseThreadHandle() noexcept;

  std::string name_;  // for diagnosis
  platform::Thread thread_;
  // Written by the thread at its begin and end, and by the owner once the thread has ended or is given up;
  // a thread compares it with its own id only, so no order is needed.
  std::atomic<platform::ThreadId> threadId_{0};
  std::function<void()> interrupt_;
};

}  // namespace sarnevo
