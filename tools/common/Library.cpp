#include "Library.h"

#include <dlfcn.h>

#include <array>
#include <string>
#include <system_error>

#include "Failure.h"
#include "kolvex/Version.h"

namespace kolvex_host {

namespace {

constexpr const char* kFileName = KOLVEX_LIBRARY_NAME;
constexpr const char* kBuildTree = "../lib";  // from the program's folder

template <typename Function>
Function* FindExport(void* handle, const char* name, const std::filesystem::path& path) {
  void* const address = dlsym(handle, name);
  if (!address) {
    throw Failure(ExitCode::Library, path.string() + " is no capture driver: it doesn't export " + name + ".");
  }
  return reinterpret_cast<Function*>(address);
}

}  // namespace

void Library::Unload::operator()(void* handle) const { dlclose(handle); }

Library::Library(const std::filesystem::path& path)
    // Every symbol now, so that a broken library fails here and not at some camera's first frame; local,
    // so that nothing of the library's meets a symbol of ours.
    : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!handle_) {
    const char* const reason = dlerror();
    throw Failure(ExitCode::Library,
                  "The driver library can't be loaded: " + std::string(reason ? reason : path.string()) + ".");
  }
  // The newest names of the family; the older ones are the same functions.
  create_ = FindExport<sarnevo::ipcapture::CreateIPCaptureFunction>(handle_.get(), "CreateIPCaptureEx3", path);
  delete_ = FindExport<sarnevo::ipcapture::DeleteIPCaptureFunction>(handle_.get(), "DeleteIPCaptureEx3", path);
}

std::filesystem::path Library::DefaultPath() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  if (!error) {
    for (const char* place : std::array{"", KOLVEX_LIBRARY_FROM_BINARY, kBuildTree}) {
      const std::filesystem::path candidate = (folder / place / kFileName).lexically_normal();
      if (std::filesystem::exists(candidate, error)) {
        return candidate;
      }
    }
  }
  return kFileName;  // without a folder: the dynamic linker looks along its own path
}

Library::Query Library::QueryFunctions() const {
  using namespace sarnevo::ipcapture;
  return {FindExport<InitCapabilityQueryFunction>(handle_.get(), "InitCapabilityQuery", path_),
          FindExport<StartCapabilityQueryFunction>(handle_.get(), "StartCapabilityQuery", path_),
          FindExport<UninitCapabilityQueryFunction>(handle_.get(), "UninitCapabilityQuery", path_)};
}

Library::DriverPtr Library::CreateDriver() const {
  DriverPtr driver(create_(), DeleteDriver{delete_});
  if (!driver) {
    throw Failure(ExitCode::Refused, "The driver library has no memory for another driver.");
  }
  return driver;
}

}  // namespace kolvex_host
