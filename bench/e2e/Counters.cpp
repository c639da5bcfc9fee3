// Standing in front of the system's functions is the purpose here, and the fortified headers have their own
// ideas about these names.
#undef _FORTIFY_SOURCE
#include "e2e/Counters.h"

#include <atomic>
#include <cstddef>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kolvex_bench {

namespace {

std::atomic<CallCounts*> counts{nullptr};

void Count(std::atomic<std::uint64_t> CallCounts::*counter) {
  CallCounts* const into = counts.load(std::memory_order_relaxed);
  if (into != nullptr && into->on.load(std::memory_order_relaxed)) {
    (into->*counter).fetch_add(1, std::memory_order_relaxed);
  }
}

template <typename... Arguments>
int Call(long number, Arguments... arguments) {
  return static_cast<int>(syscall(number, arguments...));
}

}  // namespace

void CountInto(CallCounts& into) { counts = &into; }

}  // namespace kolvex_bench

using namespace kolvex_bench;
#define EXPORTED extern "C" __attribute__((visibility("default")))

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

EXPORTED void* malloc(std::size_t size) {
  Count(&CallCounts::allocations);
  return __libc_malloc(size);
}
EXPORTED void* calloc(std::size_t count, std::size_t size) {
  Count(&CallCounts::allocations);
  return __libc_calloc(count, size);
}
EXPORTED void* realloc(void* block, std::size_t size) {
  Count(&CallCounts::allocations);
  return __libc_realloc(block, size);
}

extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size) {
  Count(&CallCounts::allocations);
  return __libc_memalign(alignment, size);
}

EXPORTED ssize_t recvfrom(int descriptor, void* into, std::size_t size, int flags, sockaddr* from,
                          socklen_t* length) {
  Count(&CallCounts::receives);
  return syscall(SYS_recvfrom, descriptor, into, size, flags, from, length);
}
EXPORTED ssize_t __recvfrom_chk(int descriptor, void* into, std::size_t size, std::size_t /*room*/, int flags,
                                sockaddr* from, socklen_t* length) {
  return recvfrom(descriptor, into, size, flags, from, length);
}
EXPORTED ssize_t recv(int descriptor, void* into, std::size_t size, int flags) {
  return recvfrom(descriptor, into, size, flags, nullptr, nullptr);
}
EXPORTED ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
  Count(&CallCounts::receives);
  return syscall(SYS_recvmsg, descriptor, message, flags);
}
EXPORTED int recvmmsg(int descriptor, mmsghdr* messages, unsigned count, int flags, timespec* timeout) {
  Count(&CallCounts::receives);
  return Call(SYS_recvmmsg, descriptor, messages, count, flags, timeout);
}
EXPORTED int poll(pollfd* descriptors, nfds_t count, int timeout) {
  Count(&CallCounts::polls);
  return Call(SYS_poll, descriptors, count, timeout);
}
EXPORTED int __poll_chk(pollfd* descriptors, nfds_t count, int timeout, std::size_t /*room*/) {
  return poll(descriptors, count, timeout);
}
EXPORTED int ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  Count(&CallCounts::polls);
  timespec left{};
  if (timeout != nullptr) {
    left = *timeout;
  }
  constexpr std::size_t kKernelMaskBytes = 8;
  return Call(SYS_ppoll, descriptors, count, timeout != nullptr ? &left : nullptr, mask, kKernelMaskBytes);
}
EXPORTED int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  Count(&CallCounts::polls);
  return Call(SYS_select, count, read, write, except, timeout);
}
EXPORTED int epoll_wait(int descriptor, epoll_event* events, int count, int timeout) {
  Count(&CallCounts::polls);
  return Call(SYS_epoll_wait, descriptor, events, count, timeout);
}
