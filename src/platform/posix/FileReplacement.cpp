#include "platform/FileReplacement.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>

#include "platform/posix/Descriptor.h"

namespace sarnevo::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTemporaryPrefix = ".kolvex-";
constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::chrono::hours kLeftoverAge{1};
constexpr int kMaxLinks = 40;  // as many as the kernel itself follows
constexpr int kMaxKept = 100;  // names for old content, ".bad" included
constexpr int kMaxTemporaryNames = 1000;

// Where the file itself lies: the end of a chain of symbolic links, whether or not there is a file. Links in
// the folder's own path need no care, the kernel follows them.
std::optional<fs::path> Resolve(fs::path path) {
  for (int links = 0; links < kMaxLinks; ++links) {
    std::error_code isNone;
    const fs::path target = fs::read_symlink(path, isNone);
    if (isNone) {
      return path;
    }
    path = path.parent_path() / target;
  }
  return std::nullopt;
}

fs::path FolderOf(const fs::path& file) { return file.parent_path() / "."; }

// Short and independent of the file's own name, so that a file whose name has just the greatest length can
// be replaced too.
std::string TemporaryName() {
  static std::atomic<unsigned> counter{0};
  return std::string(kTemporaryPrefix) + std::to_string(::getpid()) + '-' +
         std::to_string(counter.fetch_add(1, std::memory_order_relaxed)) + std::string(kTemporarySuffix);
}

bool IsTemporaryName(std::string_view name) {
  return name.starts_with(kTemporaryPrefix) && name.ends_with(kTemporarySuffix);
}

// The new content in the making, beside the file. Removed with its object unless it has been put in place.
class Temporary {
 public:
  Temporary(int folder, mode_t mode) : folder_(folder) {
    for (int i = 0; i < kMaxTemporaryNames && !file_.IsOpen(); ++i) {
      name_ = TemporaryName();
      file_.Reset(::openat(folder, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
      if (!file_.IsOpen() && errno != EEXIST) {
        break;
      }
    }
    exists_ = file_.IsOpen();
  }
  ~Temporary() {
    if (exists_) {
      ::unlinkat(folder_, name_.c_str(), 0);
    }
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  bool Exists() const { return exists_; }

  bool TakeRightsOf(const struct stat& old) {
    // Owner and group first, since changing them may clear bits of the mode. A process that may not change
    // them goes on, and the file becomes its own.
    if (::fchown(file_.Get(), old.st_uid, old.st_gid) != 0) {
      [[maybe_unused]] const int groupOnly = ::fchown(file_.Get(), static_cast<uid_t>(-1), old.st_gid);
    }
    return ::fchmod(file_.Get(), old.st_mode & 0777) == 0;
  }

  // Also flushes it to the disk.
  bool Fill(std::string_view content) {
    // Beyond this limit a write would raise a signal in the host's process in addition to failing.
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && content.size() > limit.rlim_cur) {
      return false;
    }
    while (!content.empty()) {
      const ssize_t count = ::write(file_.Get(), content.data(), content.size());
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count <= 0) {
        return false;
      }
      content.remove_prefix(static_cast<std::size_t>(count));
    }
    return ::fsync(file_.Get()) == 0 && file_.Close();
  }

  bool PutInPlaceOf(const std::string& name) {
    exists_ = ::renameat(folder_, name_.c_str(), folder_, name.c_str()) != 0;
    return !exists_;
  }

 private:
  const int folder_;
  Descriptor file_;
  std::string name_;
  bool exists_ = false;
};

std::string KeptName(const std::string& name, int number) {
  return name + ".bad" + (number > 0 ? '.' + std::to_string(number) : "");
}

// Gives the file a second name, so that there is no moment without the file itself. Where the file system
// has no second names the file is moved; a crash then leaves only the kept one, which is whole as well.
bool KeepAside(int folder, const std::string& name) {
  std::string oldest;
  struct timespec oldestTime = {};
  for (int number = 0; number < kMaxKept; ++number) {
    const std::string kept = KeptName(name, number);
    if (::linkat(folder, name.c_str(), folder, kept.c_str(), 0) == 0) {
      return true;
    }
    const int error = errno;
    struct stat taken = {};
    if (::fstatat(folder, kept.c_str(), &taken, AT_SYMLINK_NOFOLLOW) != 0) {
      return error != EEXIST && errno == ENOENT && ::renameat(folder, name.c_str(), folder, kept.c_str()) == 0;
    }
    const auto& time = taken.st_mtim;
    if (S_ISREG(taken.st_mode) && (oldest.empty() || std::tie(time.tv_sec, time.tv_nsec) <
                                                         std::tie(oldestTime.tv_sec, oldestTime.tv_nsec))) {
      oldest = kept;
      oldestTime = time;
    }
  }
  return !oldest.empty() && ::unlinkat(folder, oldest.c_str(), 0) == 0 &&
         (::linkat(folder, name.c_str(), folder, oldest.c_str(), 0) == 0 ||
          ::renameat(folder, name.c_str(), folder, oldest.c_str()) == 0);
}

bool Flush(int folder) {
  // Some file systems know no flush of a folder and say so; there is nothing more to be done then.
  return ::fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view content, OldContent old) {
  const auto place = Resolve(path);
  if (!place) {
    return false;
  }
  const std::string name = place->filename();
  const Descriptor folder(::open(FolderOf(*place).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) {
    return false;
  }
  struct stat facts = {};
  const bool exists = ::fstatat(folder.Get(), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) == 0;
  const bool mayReplace =
      exists ? S_ISREG(facts.st_mode) && ::faccessat(folder.Get(), name.c_str(), W_OK, AT_EACCESS) == 0
             : errno == ENOENT;
  if (!mayReplace) {
    return false;
  }
  // Until it has the old file's rights nobody else may look into the new one.
  Temporary fresh(folder.Get(), exists ? 0600 : 0666);
  if (!fresh.Exists() || (exists && !fresh.TakeRightsOf(facts)) || !fresh.Fill(content)) {
    return false;
  }
  if (exists && facts.st_size > 0 && old == OldContent::KeepAside && !KeepAside(folder.Get(), name)) {
    return false;
  }
  return fresh.PutInPlaceOf(name) && Flush(folder.Get());
}

void RemoveLeftovers(const std::string& path) {
  const auto place = Resolve(path);
  if (!place) {
    return;
  }
  const auto old = fs::file_time_type::clock::now() - kLeftoverAge;
  std::error_code failed;
  fs::directory_iterator entry(FolderOf(*place), failed);
  for (; !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
    std::error_code gone;  // another process may clean up too
    if (IsTemporaryName(entry->path().filename().native()) &&
        fs::is_regular_file(entry->symlink_status(gone)) && entry->last_write_time(gone) < old && !gone) {
      fs::remove(entry->path(), gone);
    }
  }
}

}  // namespace sarnevo::platform
