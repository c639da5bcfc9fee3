#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Facts about the process that the library is a guest in. Any thread may call.
namespace sarnevo::platform {

/// The folder of the host's executable, without a separator at its end; nothing when it can't be told.
std::optional<std::string> HostExecutableFolder();

/// Number of processors of the machine, at least 1.
std::uint32_t ProcessorCount() noexcept;

}  // namespace sarnevo::platform
