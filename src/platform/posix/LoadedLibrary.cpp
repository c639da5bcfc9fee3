#include "platform/LoadedLibrary.h"

#include <dlfcn.h>

namespace sarnevo::platform {

void KeepLibraryLoaded() noexcept {
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&KeepLibraryLoaded), &self) != 0 && self.dli_fname != nullptr) {
    dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

}  // namespace sarnevo::platform
