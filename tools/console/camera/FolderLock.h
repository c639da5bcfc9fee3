#pragma once

#include <filesystem>

namespace kolvex_console {

/// Keeps a folder for one server at a time: two would overwrite each other's files. The kernel gives the lock back
/// however the process ends; the file "lock" then still says that its server didn't end in good order.
class FolderLock {
 public:
  /// Throws Failure (ExitCode::Output) when another server has the folder.
  explicit FolderLock(const std::filesystem::path& folder);
  /// The server has ended in good order.
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  /// The server before was killed, or its machine lost its power.
  bool WasKilled() const { return wasKilled_; }

 private:
  int descriptor_;
  bool wasKilled_ = false;
};

}  // namespace kolvex_console
