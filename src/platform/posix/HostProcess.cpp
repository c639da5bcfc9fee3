#include "platform/HostProcess.h"

#include <algorithm>
#include <array>

#include <unistd.h>

namespace sarnevo::platform {

std::optional<std::string> HostExecutableFolder() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) == path.size()) {
    return std::nullopt;
  }
  const std::string executable(path.data(), static_cast<std::size_t>(length));
  return executable.substr(0, executable.rfind('/'));
}

std::uint32_t ProcessorCount() noexcept {
  return static_cast<std::uint32_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

}  // namespace sarnevo::platform
