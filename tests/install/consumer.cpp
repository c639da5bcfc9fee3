#include <dlfcn.h>
#include <kolvex/Exports.h>

int main() {
  using namespace sarnevo::ipcapture;
  void* const library = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (!library) return 1;
  IIPCaptureDriverEx3* const driver =
      reinterpret_cast<CreateIPCaptureFunction*>(dlsym(library, "CreateIPCaptureEx3"))();
  const bool alive = driver && driver->GetOptionalA() == nullptr && driver->GetVideoCapture() == nullptr;
  reinterpret_cast<DeleteIPCaptureFunction*>(dlsym(library, "DeleteIPCaptureEx3"))(driver);
  return alive && dlclose(library) == 0 ? 0 : 1;
}
