#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace sarnevo::platform {

using ThreadId = std::uint32_t;

/// Never 0, and unique among the threads of all processes of the machine.
ThreadId CurrentThreadId() noexcept;

enum class ThreadPriority {
  Normal,
  /// A few steps above the thread that starts it; where the process may not raise priorities it stays as it is.
  AboveNormal,
};

/// A thread of the operating system, and its owner's handle. The rest of the library uses StoppableThread, which can
/// also end one.
///
/// The thread blocks all signals but those of its own faults, has a small stack of its own and carries a name for the
/// debugger, of which the system may keep the beginning alone (Linux: 15 bytes). The handle is used by one thread at a
/// time.
class Thread {
 public:
  Thread() noexcept = default;
  /// Detaches.
  ~Thread() { Detach(); }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Starts a thread that runs @p body, which doesn't throw. False when none could be created; @p body is then gone.
  /// The handle is empty before. May throw std::bad_alloc, with the same outcome.
  bool Start(std::string_view name, std::function<void()> body, ThreadPriority priority);
  /// Waits until the thread has left the library's code for good, so that the library may be unloaded. Not on the
  /// thread itself. The handle is empty then.
  void Join() noexcept;
  /// Forgets the thread; it goes on running by itself.
  void Detach() noexcept;

 private:
  std::optional<std::uintptr_t> handle_;  // the system's
};

}  // namespace sarnevo::platform
