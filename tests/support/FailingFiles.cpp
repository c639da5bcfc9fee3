// The C library's functions for files, replaced for the program that this is linked into.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/Failures.h"

namespace {

using kolvex_test::Fails;
using kolvex_test::Resource;

// The write before took half of its bytes, and the disk is full now.
thread_local bool full = false;

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

extern "C" {

int openat(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Fails(Resource::Open) ? Fail(EMFILE)
                               : static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return openat(AT_FDCWD, path, flags, mode);
}
int __open_2(const char* path, int flags) { return openat(AT_FDCWD, path, flags); }
ssize_t write(int descriptor, const void* data, std::size_t size) {
  if (full) {
    full = false;
    return Fail(ENOSPC);
  }
  full = size > 1 && Fails(Resource::Write);
  return syscall(SYS_write, descriptor, data, full ? size / 2 : size);
}
int fsync(int descriptor) {
  return Fails(Resource::Flush) ? Fail(EIO) : static_cast<int>(syscall(SYS_fsync, descriptor));
}
int renameat(int from, const char* old, int to, const char* name) noexcept {
  return Fails(Resource::Rename) ? Fail(EIO) : static_cast<int>(syscall(SYS_renameat, from, old, to, name));
}
int rename(const char* old, const char* name) noexcept { return renameat(AT_FDCWD, old, AT_FDCWD, name); }

}  // extern "C"
