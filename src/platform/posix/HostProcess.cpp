#include "platform/HostProcess.h"

#include <array>

#include <dlfcn.h>
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

void KeepLibraryLoaded() noexcept {
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&KeepLibraryLoaded), &self) != 0 && self.dli_fname != nullptr) {
    dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

}  // namespace sarnevo::platform
