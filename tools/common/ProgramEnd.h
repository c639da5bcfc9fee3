#pragma once

namespace kolvex_host {

/// A thread that can't be waited for goes on in the library. Any thread may call.
void LeaveThreadBehind() noexcept;

/// What main returns with @p code. Where a thread was left behind the program ends here and at once: the
/// handlers that run at exit would tear down libraries under that thread.
int EndProgram(int code) noexcept;

}  // namespace kolvex_host
