#include "camera/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "Failure.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;

FolderLock::FolderLock(const std::filesystem::path& folder)
    : descriptor_(open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
  if (descriptor_ < 0 || flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
    throw Failure(ExitCode::Output,
                  error == EWOULDBLOCK
                      ? "Another server has the folder " + folder.string() + ": end it, or give another folder."
                      : "The folder " + folder.string() + " can't be locked: " + std::strerror(error) + ".");
  }
  // The file holds something only while a server runs.
  wasKilled_ = lseek(descriptor_, 0, SEEK_END) > 0;
  if (!wasKilled_) {
    // Without the mark the folder is locked all the same.
    [[maybe_unused]] const ssize_t written = write(descriptor_, "running\n", 8);
  }
}

FolderLock::~FolderLock() {
  [[maybe_unused]] const int cleared = ftruncate(descriptor_, 0);
  close(descriptor_);
}

}  // namespace kolvex_console
