#pragma once

#include <filesystem>
#include <memory>

#include "kolvex/Exports.h"

namespace kolvex_host {

/// The driver library, loaded at run time as a recording server loads a plug-in: the program isn't linked
/// with it and knows nothing but the names of its exports and the interface headers.
///
/// Outlives every driver that it made.
class Library {
 public:
  /// Loads @p path. Throws Failure (ExitCode::Library) when the file can't be loaded or lacks an export.
  explicit Library(const std::filesystem::path& path);

  /// Where the library lies when nobody says otherwise: beside this program, at the place that the
  /// installation gives it relative to this program, or wherever the dynamic linker finds it.
  static std::filesystem::path DefaultPath();

  struct DeleteDriver {
    sarnevo::ipcapture::DeleteIPCaptureFunction* function = nullptr;
    void operator()(sarnevo::ipcapture::IIPCaptureDriverEx3* driver) const { function(driver); }
  };
  /// Goes back through the library's own export, never through delete: the memory is the library's.
  using DriverPtr = std::unique_ptr<sarnevo::ipcapture::IIPCaptureDriverEx3, DeleteDriver>;

  /// The exports of the capability query.
  struct Query {
    sarnevo::ipcapture::InitCapabilityQueryFunction* init;
    sarnevo::ipcapture::StartCapabilityQueryFunction* start;
    sarnevo::ipcapture::UninitCapabilityQueryFunction* uninit;
  };
  /// Throws Failure (ExitCode::Library) when the library has no such exports.
  Query QueryFunctions() const;

  /// A new driver. Throws Failure (ExitCode::Refused) when the library gives none.
  DriverPtr CreateDriver() const;

 private:
  struct Unload {
    void operator()(void* handle) const;
  };

  std::filesystem::path path_;
  std::unique_ptr<void, Unload> handle_;
  sarnevo::ipcapture::CreateIPCaptureFunction* create_ = nullptr;
  sarnevo::ipcapture::DeleteIPCaptureFunction* delete_ = nullptr;
};

}  // namespace kolvex_host
