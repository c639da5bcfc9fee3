#pragma once

#include <memory>
#include <string>
#include <utility>

#include "kolvex/Types.h"
#include "threads/CEvent.h"
#include "threads/StoppableThread.h"

namespace sarnevo {

/// A thread with a stop event and a stop that is bounded in time (StoppableThread).
///
/// An object is idle, running, or finished (Run has returned); it may be started again as often as wanted.
/// Start, Stop and destruction belong to one thread at a time, the owner's; in addition the running thread
/// may call Stop. Run is virtual, so a derived class or its owner stops the thread before the derived part goes: the
/// destructor here only catches a thread that is on its way out.
class CBaseThread {
 public:
  CBaseThread() noexcept = default;
  virtual ~CBaseThread();
  CBaseThread(const CBaseThread&) = delete;
  CBaseThread& operator=(const CBaseThread&) = delete;

  /// Clears the stop event in any case; then starts a thread that runs Run. False when one is alive (which
  /// then goes on, under its old name) or can't be made. @p name is for the debugger.
  virtual bool Start(const std::string& name);

  /// Sets the stop event and waits for the thread's end, up to @p timeoutMs; then lets it go or interrupts it
  /// (StoppableThread), which isn't reported. True also when there is no thread. False only on the thread itself,
  /// which goes on until Run sees the stop event.
  virtual bool Stop(u32 timeoutMs);

  /// Sets the stop event and nothing else. Any thread may call.
  void RequestStop() noexcept { stopEvent.Set(); }
  /// For the running thread, between two parts of its work.
  bool IsStopRequested() noexcept { return AwaitStop(0); }

  /// What the object is a part of, and Run works on: it lives until Run has returned. While no thread runs.
  void KeepAlive(std::weak_ptr<const void> object) noexcept { thread_.KeepAlive(std::move(object)); }

  /// The caller is the running thread. Any thread may ask.
  bool IsOwnThread() const noexcept { return thread_.IsOwnThread(); }

 protected:
  /// The body of the thread: returns soon after AwaitStop gives true.
  virtual void Run() = 0;
  /// For Run: waits for the stop event, up to @p timeoutMs. True at once on a thread that was let go: the event is then
  /// for the next one.
  bool AwaitStop(u32 timeoutMs) noexcept;

  bool IsAlive() const noexcept { return thread_.IsAlive(); }

  /// Set by Stop until the next Start.
  CManualEvent stopEvent;

 private:
  StoppableThread thread_;
};

}  // namespace sarnevo
