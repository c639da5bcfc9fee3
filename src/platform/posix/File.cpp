#include "platform/File.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sarnevo::platform {

File::~File() { Close(); }

File::OpenResult File::Open(const std::string& path, Access access, IfMissing ifMissing) noexcept {
  Close();
  // O_NONBLOCK, so that a pipe that lies there in place of a file doesn't hold the caller up.
  int flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (access == Access::Read ? O_RDONLY : O_RDWR);
  if (ifMissing == IfMissing::Create) {
    flags |= O_CREAT;
  }
  handle_ = ::open(path.c_str(), flags, 0666);
  if (!IsOpen()) {
    return errno == ENOENT || errno == ENOTDIR ? OpenResult::Missing : OpenResult::Refused;
  }
  if (!Size()) {
    Close();
    return OpenResult::Refused;
  }
  return OpenResult::Opened;
}

void File::Close() noexcept {
  if (IsOpen()) {
    ::close(static_cast<int>(handle_));
    handle_ = kClosed;
  }
}

std::optional<std::uint64_t> File::Size() const noexcept {
  struct stat facts = {};
  if (!IsOpen() || ::fstat(static_cast<int>(handle_), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(facts.st_size);
}

std::optional<std::string> File::ReadAll(std::size_t limit) const {
  const auto size = Size();
  if (!size || *size > limit) {
    return std::nullopt;
  }
  // One byte of room more than the size, so that the end shows; a file that grows meanwhile is followed.
  std::string content(static_cast<std::size_t>(*size) + 1, '\0');
  std::size_t filled = 0;
  for (;;) {
    const ssize_t count = ::pread(static_cast<int>(handle_), content.data() + filled, content.size() - filled,
                                  static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return std::nullopt;
    }
    if (count == 0) {
      content.resize(filled);
      return content;
    }
    filled += static_cast<std::size_t>(count);
    if (filled > limit) {
      return std::nullopt;
    }
    if (filled == content.size()) {
      content.resize(2 * filled);
    }
  }
}

}  // namespace sarnevo::platform
