#include "platform/ProductVersion.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/HostProcess.h"
#include "platform/VersionResource.h"

namespace sarnevo::platform {

namespace {

// A regular file, read in small pieces: the library's few headers are wanted, not its megabytes. Nothing is
// mapped, since a file that shrinks under a mapping ends the process.
class FileSource : public ByteSource {
 public:
  explicit FileSource(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat facts {};
    if (descriptor_ >= 0 && fstat(descriptor_, &facts) == 0 && S_ISREG(facts.st_mode)) {
      size_ = static_cast<std::uint64_t>(facts.st_size);
    }
  }
  ~FileSource() override {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    if (offset > size_ || size_ - offset < into.size()) {
      return false;
    }
    while (!into.empty()) {
      const ssize_t count = pread(descriptor_, into.data(), into.size(), static_cast<off_t>(offset));
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count <= 0) {
        return false;
      }
      into = into.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }

 private:
  const int descriptor_;
  std::uint64_t size_ = 0;  // stays 0 for what isn't a regular file
};

}  // namespace

std::optional<Version> ReadProductVersion(std::string_view name) {
  const auto folder = HostExecutableFolder();
  if (!folder) {
    return std::nullopt;
  }
  return ReadVersionResource(FileSource((*folder + '/').append(name).c_str()));
}

}  // namespace sarnevo::platform
