#pragma once

#include <chrono>

namespace kolvex_host {

/// The wish of a person or of the system to end: Ctrl-C, SIGTERM, or the terminal's going away.
///
/// The signals are blocked in the whole process and asked for by the main thread alone, so that no code ever
/// runs inside a signal handler.
class StopSignal {
 public:
  /// Blocks the signals. Before any other thread is started, since threads inherit it.
  StopSignal();

  /// What a second signal does while the program cleans up after the first.
  enum class Second {
    Ends,   ///< ends the process at once: whoever presses Ctrl-C twice doesn't want to wait for cameras
    Waits,  ///< nothing: what is left to do must be done, and doesn't take long
  };

  /// Waits for up to @p timeout. True when a signal has come.
  bool Wait(std::chrono::milliseconds timeout, Second second = Second::Ends);
};

/// A thread that can't be waited for goes on in the library. Any thread may call.
void LeaveThreadBehind() noexcept;

/// What main returns with @p code. Where a thread was left behind the program ends here and at once: the
/// handlers that run at exit would tear down libraries under that thread.
int EndProgram(int code) noexcept;

}  // namespace kolvex_host
