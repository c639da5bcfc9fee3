#pragma once

#include <string>

#include "platform/CriticalSection.h"
#include "platform/Thread.h"

namespace sarnevo::thread {

/// A thread that is waited for without limit and never ended by force.
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
  virtual ~CSimpleThread();
  CSimpleThread(const CSimpleThread&) = delete;
  CSimpleThread& operator=(const CSimpleThread&) = delete;

  /// Starts a thread that runs Run. False while there is one that wasn't joined, even if it has ended, on a
  /// thread that has joined itself and is still in Run, and when none can be made. @p name is for the
  /// debugger.
  bool Start(const std::string& name);

  /// Waits for the thread's end. On the thread itself it only lets go of it, and Run then has to return
  /// soon. Always true.
  bool Join();

 protected:
  /// There is a thread that wasn't joined.
  bool HasThread() noexcept;

  /// Waits until a thread that joined itself is out of Run, so that no two are in it. False on that thread
  /// itself.
  bool AwaitDeparture() noexcept;

  /// The same for the destructor of the class that implements Run. On the thread itself the host destroys
  /// the object inside a callback: the thread is left to end behind that, without a further look at the
  /// object.
  void AbandonOrAwaitDeparture() noexcept;

 private:
  platform::CriticalSection handleLock_;  // guards the three below, but isn't held while waiting
  platform::Thread thread_;
  platform::Thread departing_;  // has joined itself and may still be on its way out of Run
  bool joining_ = false;        // the owner waits for thread_, so that the thread itself leaves it alone
  std::string name_;            // for diagnosis; the owner
};

}  // namespace sarnevo::thread
