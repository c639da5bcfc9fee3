#include "support/HostCamera.h"

#include <dlfcn.h>

#include <iterator>
#include <stdexcept>

namespace kolvex_bench {

namespace contract = sarnevo::ipcapture;

DriverLibrary::DriverLibrary(const std::string& file) {
  void* const handle = dlopen(file.c_str(), RTLD_NOW);
  if (handle == nullptr) {
    throw std::runtime_error(dlerror());
  }
  create = reinterpret_cast<contract::CreateIPCaptureFunction*>(dlsym(handle, "CreateIPCaptureEx3"));
  destroy = reinterpret_cast<contract::DeleteIPCaptureFunction*>(dlsym(handle, "DeleteIPCaptureEx3"));
  if (create == nullptr || destroy == nullptr) {
    throw std::runtime_error(file + " isn't the driver");
  }
}

void HostCamera::Start(const DriverLibrary& library) {
  driver_ = library.create();
  if (driver_ == nullptr || !driver_->Open(nullptr, this, this) ||
      !driver_->GetVideoCapture()->StartCapture(0, this, this)) {
    throw std::runtime_error("the driver refused " + address);
  }
}

const char* HostCamera::GetCustomSetting(u32 index) {
  static constexpr const char* kSettings[] = {"",   "5000",           "1", "1", "10", "1", "4000",
                                              "64", "64,1000,4000,e", ""};
  return index < std::size(kSettings) ? kSettings[index] : nullptr;
}

contract::IFrame* HostCamera::AllocateFrame(u32 /*fourCC*/, u32 size, const char* /*owner*/) {
  if (data_.size() < size) {
    data_.resize(size);
  }
  return this;
}

}  // namespace kolvex_bench
