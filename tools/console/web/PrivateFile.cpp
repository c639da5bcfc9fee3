#include "web/PrivateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include "Failure.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;

namespace {

bool WriteAll(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = write(descriptor, content.data(), content.size());
    if (count < 0 && errno != EINTR) {
      return false;
    }
    content.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  return fsync(descriptor) == 0;
}

}  // namespace

void WritePrivateFile(const std::filesystem::path& path, std::string_view content) {
  std::string beside = path.string() + ".XXXXXX";
  const int descriptor = mkostemp(beside.data(), O_CLOEXEC);  // mode 0600
  bool written = descriptor >= 0 && WriteAll(descriptor, content);
  int error = errno;
  if (descriptor >= 0) {
    close(descriptor);
    if (written && rename(beside.c_str(), path.c_str()) != 0) {
      written = false;
      error = errno;
    }
    if (!written) {
      unlink(beside.c_str());
    }
  }
  if (!written) {
    throw Failure(ExitCode::Output,
                  "The file " + path.string() + " can't be written: " + std::strerror(error) + ".");
  }
  // The name is on the disk when the folder is. The file itself is there already, so a failure loses nothing
  // but the certainty.
  const std::filesystem::path parent = path.has_parent_path() ? path.parent_path() : ".";
  if (const int folder = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
    fsync(folder);
    close(folder);
  }
}

void MakePrivateFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!error) {
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
  }
  if (!error && access(folder.c_str(), W_OK | X_OK) != 0) {
    error = std::error_code(errno, std::generic_category());
  }
  if (error) {
    throw Failure(ExitCode::Output,
                  "The folder " + folder.string() + " can't be written: " + error.message() + ".");
  }
}

void RefuseSharedFile(const std::filesystem::path& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw Failure(ExitCode::Usage,
                  "The file " + path.string() + " can't be read: " + std::strerror(errno) + ".");
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw Failure(ExitCode::Usage,
                  "The file " + path.string() + " is open to other users: protect it with chmod 600.");
  }
}

}  // namespace kolvex_console
