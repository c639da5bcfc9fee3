#include "platform/SharedMemory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sarnevo::platform {

namespace {

// More rounds than other users could come and go, with bad luck, while this one opens the block.
constexpr int kAttempts = 100;

bool Lock(int descriptor, int how) noexcept {
  while (flock(descriptor, how) != 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

// Shrinking first is what zeroes the block.
bool StartAfresh(int descriptor, off_t size) noexcept {
  return ftruncate(descriptor, 0) == 0 && ftruncate(descriptor, size) == 0;
}

// Every user holds a shared lock on the file, so an exclusive one proves that nobody else is there. Whoever
// gets it while opening starts afresh, and whoever gets it while closing takes the name away.
int OpenAsUser(const char* systemName, off_t size) noexcept {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int descriptor = shm_open(systemName, O_RDWR | O_CREAT, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
      return -1;
    }
    const bool failed = Lock(descriptor, LOCK_EX | LOCK_NB) && !StartAfresh(descriptor, size);
    struct stat facts {};
    // A last user may have taken the name away between our opening and our lock: then the file has no link
    // left, and the next round makes a new one.
    if (!failed && Lock(descriptor, LOCK_SH) && fstat(descriptor, &facts) == 0 && facts.st_nlink > 0 &&
        facts.st_size == size) {
      return descriptor;
    }
    close(descriptor);
    if (failed) {
      return -1;
    }
  }
  return -1;
}

}  // namespace

SharedMemory::SharedMemory(const char* name, std::size_t bytes) noexcept : size_(bytes) {
  // The system wants one slash in front and none after it.
  std::snprintf(systemName_.data(), systemName_.size(), "/%s", name);
  std::replace(systemName_.begin() + 1, systemName_.end(), '/', '_');
  const int descriptor = OpenAsUser(systemName_.data(), static_cast<off_t>(bytes));
  handle_ = descriptor;
  if (descriptor < 0) {
    return;
  }
  void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  data_ = data == MAP_FAILED ? nullptr : data;
}

SharedMemory::~SharedMemory() {
  if (data_ != nullptr) {
    munmap(data_, size_);
  }
  if (const int descriptor = static_cast<int>(handle_); descriptor >= 0) {
    if (Lock(descriptor, LOCK_EX | LOCK_NB)) {
      shm_unlink(systemName_.data());
    }
    close(descriptor);
  }
}

}  // namespace sarnevo::platform
