#pragma once

#include <optional>
#include <string>

/// Facts about the process that the library is a guest in. Any thread may call.
namespace sarnevo::platform {

/// The folder of the host's executable, without a separator at its end; nothing when it isn't known.
std::optional<std::string> HostExecutableFolder();

/// From here on the library's code stays in the process, also when the host unloads it: a thread that nobody waits for
/// still runs in it.
void KeepLibraryLoaded() noexcept;

}  // namespace sarnevo::platform
