#include "platform/FileReplacement.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "platform/posix/Descriptor.h"

namespace sarnevo::platform {

namespace {

constexpr std::string_view kTemporaryPrefix = ".kolvex-";
constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::time_t kLeftoverAge = 3600;  // seconds
constexpr int kMaxLinks = 40;               // as many as the kernel itself follows
constexpr int kMaxKept = 100;               // names for old content, ".bad" included
constexpr int kMaxTemporaryNames = 1000;

struct Place {
  std::string folder;
  std::string name;
};

Place Split(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return {".", path};
  }
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// Where the file itself lies: the end of a chain of symbolic links, whether or not there is a file. Links in
// the folder's own path need no care, the kernel follows them.
std::optional<Place> Resolve(std::string path) {
  for (int links = 0; links < kMaxLinks; ++links) {
    char target[4096];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof(target));
    if (length < 0) {
      return Split(path);
    }
    if (length == 0 || static_cast<std::size_t>(length) == sizeof(target)) {
      return std::nullopt;
    }
    std::string next(target, static_cast<std::size_t>(length));
    path = next.front() == '/' ? std::move(next) : Split(path).folder + '/' + next;
  }
  return std::nullopt;
}

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
    // Beyond this limit a write would raise a signal in the host's process instead of failing.
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
  const Descriptor folder(::open(place->folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) {
    return false;
  }
  struct stat facts = {};
  const bool exists = ::fstatat(folder.Get(), place->name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) == 0;
  const bool mayReplace =
      exists ? S_ISREG(facts.st_mode) && ::faccessat(folder.Get(), place->name.c_str(), W_OK, AT_EACCESS) == 0
             : errno == ENOENT;
  if (!mayReplace) {
    return false;
  }
  // Until it has the old file's rights nobody else may look into the new one.
  Temporary fresh(folder.Get(), exists ? 0600 : 0666);
  if (!fresh.Exists() || (exists && !fresh.TakeRightsOf(facts)) || !fresh.Fill(content)) {
    return false;
  }
  if (exists && facts.st_size > 0 && old == OldContent::KeepAside && !KeepAside(folder.Get(), place->name)) {
    return false;
  }
  return fresh.PutInPlaceOf(place->name) && Flush(folder.Get());
}

void RemoveLeftovers(const std::string& path) {
  const auto place = Resolve(path);
  if (!place) {
    return;
  }
  struct Closer {
    void operator()(DIR* open) const { ::closedir(open); }
  };
  const std::unique_ptr<DIR, Closer> folder(::opendir(place->folder.c_str()));
  if (!folder) {
    return;
  }
  const std::time_t now = std::time(nullptr);
  while (const dirent* entry = ::readdir(folder.get())) {
    struct stat facts = {};
    if (IsTemporaryName(entry->d_name) &&
        ::fstatat(::dirfd(folder.get()), entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(facts.st_mode) && now - facts.st_mtime > kLeftoverAge) {
      ::unlinkat(::dirfd(folder.get()), entry->d_name, 0);
    }
  }
}

}  // namespace sarnevo::platform
