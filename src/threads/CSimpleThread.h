#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "threads/StoppableThread.h"

namespace sarnevo::thread {

/// A thread that is waited for without limit: whoever joins it neither lets it go nor interrupts it.
///
/// Start and Join belong to one thread at a time, the owner's; the running thread may call them too, even
/// while the owner joins it. Run is virtual, so the thread is joined before the derived part of the object
/// goes; the destructor here doesn't do it.
class CSimpleThread {
 protected:
  /// The body of the thread.
  virtual void Run() = 0;

 public:
  CSimpleThread() noexcept = default;
  virtual ~CSimpleThread() = default;
  CSimpleThread(const CSimpleThread&) = delete;
  CSimpleThread& operator=(const CSimpleThread&) = delete;

  /// Starts a thread that runs Run. False while there is one that wasn't joined, even if it has ended, on a
  /// thread that has joined itself and is still in Run, and when none can be made. It waits until a thread
  /// that has joined itself is out of Run. @p name is for the debugger.
  bool Start(const std::string& name);

  /// Waits for the thread's end. On the thread itself it waits for nothing, and Run then has to return soon. Always
  /// true.
  bool Join();

  /// What the object is a part of, and Run works on: it lives until Run has returned. While no thread runs.
  void KeepAlive(std::weak_ptr<const void> object) noexcept { thread_.KeepAlive(std::move(object)); }

  /// The caller is the running thread. Any thread may ask.
  bool IsOwnThread() const noexcept { return thread_.IsOwnThread(); }

 protected:
  /// What Start begins with: waits for a thread that has joined itself. False when there is a thread, and Start fails.
  bool AwaitDeparture();

 private:
  StoppableThread thread_;
  std::atomic<bool> departing_{false};  // the thread has joined itself; set by it, cleared by the next start
};

}  // namespace sarnevo::thread
