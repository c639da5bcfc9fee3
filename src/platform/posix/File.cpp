#include "platform/File.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sarnevo::platform {

namespace {

// How many bytes there were from the offset on, up to as many as there is room for; nothing when they can't be read.
std::optional<std::size_t> ReadAt(int descriptor, std::uint64_t offset, std::span<std::byte> into) noexcept {
  std::size_t filled = 0;
  while (filled < into.size()) {
    const ssize_t count =
        ::pread(descriptor, &into[filled], into.size() - filled, static_cast<off_t>(offset + filled));
    if (count == 0) {
      break;
    }
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return std::nullopt;
    }
  }
  return filled;
}

}  // namespace

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

bool File::Read(std::uint64_t offset, std::span<std::uint8_t> into) const {
  return ReadAt(static_cast<int>(handle_), offset, std::as_writable_bytes(into)) == into.size();
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
    const auto room = std::as_writable_bytes(std::span(content)).subspan(filled);
    const auto count = ReadAt(static_cast<int>(handle_), filled, room);
    filled += count.value_or(0);
    if (!count || filled > limit) {
      return std::nullopt;
    }
    if (filled < content.size()) {
      content.resize(filled);
      return content;
    }
    content.resize(2 * filled);
  }
}

}  // namespace sarnevo::platform
