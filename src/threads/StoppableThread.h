#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <stop_token>
#include <string_view>
#include <utility>

#include "platform/Thread.h"
#include "platform/Time.h"

namespace sarnevo {

/// A thread of the library, and the one way in which all of them are ended.
///
/// The body owns what it works on, so that nothing it may still look at goes before it has returned. A stop then takes
/// three steps, of which the owner does the first: it asks, in its own way (a flag, an event), and calls End, which
///
/// 1. waits. A thread that looks at what it was asked ends here.
/// 2. closes the door to the host: CallHost makes no further call on that thread. A thread that is in a call of the
///    host and doesn't come back is let go: End returns. Should the host ever return to the thread, CallHost says so,
///    and the body returns in the ordinary way, without a look at anything of the host's or of the driver's.
/// 3. interrupts any other thread, which talks to the camera or pauses, and waits for its end. Everything of ours that
///    blocks can be interrupted or is bounded.
///
/// An atomic exchange decides between "the host has returned" and "let go", so that exactly one of them happens.
/// The handle is used by one thread at a time, the owner's, but for IsOwnThread.
class StoppableThread {
 public:
  StoppableThread() noexcept = default;
  ~StoppableThread() { Release(); }
  StoppableThread(const StoppableThread&) = delete;
  StoppableThread& operator=(const StoppableThread&) = delete;

  /// What the bodies of later starts work on: it lives until they have returned.
  void KeepAlive(std::weak_ptr<const void> object) noexcept { kept_ = std::move(object); }

  /// Starts a thread that runs @p body. False when none could be created; the handle is then empty. A handle that was
  /// recorded before is released. An exception out of @p body ends the thread quietly.
  template <typename Body>
  bool Start(std::string_view name, Body body,
             platform::ThreadPriority priority = platform::ThreadPriority::Normal) noexcept {
    try {
      return StartBody(name, std::function<void()>(std::move(body)), priority);
    } catch (const std::exception&) {
      Release();  // no memory: as when there is no thread
      return false;
    }
  }

  /// A thread is recorded, running or ended.
  bool HasHandle() const noexcept;
  /// The recorded thread has neither ended nor been let go.
  bool IsAlive() const noexcept;
  /// The caller is the recorded thread. Any thread may ask.
  bool IsOwnThread() const noexcept;

  /// Waits until the thread has ended or let itself go. True then, and at once when there is none; false at once on the
  /// thread itself.
  bool Wait() noexcept;

  /// Ends the thread as above, and releases it. On the thread itself, inside a call of the host, it is let go and goes
  /// on there. False when it had to be let go or interrupted.
  bool End(platform::Milliseconds patience) noexcept;

  /// Forgets the thread; one that runs goes on by itself.
  void Release() noexcept;

  struct Control;

 private:
  bool StartBody(std::string_view name, std::function<void()> body, platform::ThreadPriority priority);

  std::weak_ptr<const void> kept_;
  platform::Thread thread_;
  std::shared_ptr<Control> control_;              // shared with the thread
  std::atomic<const Control*> running_{nullptr};  // the same, for comparison by any thread
};

/// What a thread of the library knows of itself. On the host's threads it is neither let go nor interrupted.
namespace own_thread {

/// The calling thread was let go. What it works for is no affair of the host's any more.
bool IsLetGo() noexcept;
/// Lets the calling thread go, as StoppableThread::End does: whoever waits for it waits no longer. Does nothing outside
/// of calls of the host.
void LetGo() noexcept;
/// Stop is requested when the calling thread is interrupted; whoever blocks gives a std::stop_callback that wakes it.
std::stop_token InterruptToken() noexcept;
/// Waits for @p duration, or until the thread is interrupted.
void Pause(platform::Milliseconds duration) noexcept;

/// The machinery of CallHost. False when the calling thread has to make no call; Leave doesn't follow then.
/// @param evenIfLetGo  the call is made all the same
bool EnterHost(bool evenIfLetGo) noexcept;
/// False when the thread was let go meanwhile, or is being ended.
bool LeaveHost() noexcept;

}  // namespace own_thread

}  // namespace sarnevo
