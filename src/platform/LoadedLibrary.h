#pragma once

namespace sarnevo::platform {

/// Keeps the code of this library in the process for good, even when the host unloads it: for a thread that was left
/// behind and comes back into it at some time. Any thread.
void KeepLibraryLoaded() noexcept;

}  // namespace sarnevo::platform
