// The C library's functions for memory, sockets and threads, replaced for the program that this is linked into. The
// sanitizers replace the same ones, so that only builds without them can have it.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/Failures.h"

namespace kolvex_test {

namespace {

std::atomic<long> blocks{0}, bytes{0};

template <typename... Arguments>
int System(Resource resource, int error, long number, Arguments... arguments) {
  if (Fails(resource)) {
    errno = error;
    return -1;
  }
  return static_cast<int>(syscall(number, arguments...));
}

}  // namespace

long LiveBlocks() { return blocks; }
long LiveBytes() { return bytes; }

}  // namespace kolvex_test

using kolvex_test::Fails;
using kolvex_test::Resource;
using kolvex_test::System;

extern "C" {

void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

// Each block has a head in front of it, so that it is known whose it is when it comes back.
struct Head {
  void* begin;
  std::uint32_t size;
  bool ofLibrary;
};
static_assert(sizeof(Head) == alignof(std::max_align_t));

static Head& HeadOf(void* block) { return static_cast<Head*>(block)[-1]; }

void* memalign(std::size_t alignment, std::size_t size) {
  alignment = std::max(alignment, alignof(std::max_align_t));
  void* const begin =
      size > UINT32_MAX || Fails(Resource::Memory) ? nullptr : __libc_memalign(alignment, size + alignment);
  if (begin == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  void* const block = static_cast<char*>(begin) + alignment;
  HeadOf(block) = {begin, static_cast<std::uint32_t>(size), kolvex_test::inLibrary};
  if (kolvex_test::inLibrary) {
    kolvex_test::blocks.fetch_add(1, std::memory_order_relaxed);
    kolvex_test::bytes.fetch_add(static_cast<long>(size), std::memory_order_relaxed);
  }
  return block;
}
void* malloc(std::size_t size) { return memalign(0, size); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}
void* calloc(std::size_t number, std::size_t size) {
  std::size_t whole = 0;
  void* const block = __builtin_mul_overflow(number, size, &whole) ? nullptr : malloc(whole);
  return block != nullptr ? std::memset(block, 0, whole) : nullptr;
}
void free(void* block) {
  if (block != nullptr) {
    const Head& head = HeadOf(block);
    if (head.ofLibrary) {
      kolvex_test::blocks.fetch_sub(1, std::memory_order_relaxed);
      kolvex_test::bytes.fetch_sub(head.size, std::memory_order_relaxed);
    }
    const int error = errno;
    __libc_free(head.begin);
    errno = error;
  }
}
void* realloc(void* block, std::size_t size) {
  void* const moved = block != nullptr && size == 0 ? nullptr : malloc(size);
  if (block != nullptr && (moved != nullptr || size == 0)) {
    std::memcpy(moved != nullptr ? moved : block, block, std::min<std::size_t>(size, HeadOf(block).size));
    free(block);
  }
  return moved;
}
std::size_t malloc_usable_size(void* block) { return block != nullptr ? HeadOf(block).size : 0; }

int socket(int family, int type, int protocol) noexcept {
  return System(Resource::Socket, EMFILE, SYS_socket, family, type, protocol);
}
int socketpair(int family, int type, int protocol, int pair[2]) noexcept {
  return System(Resource::Socket, EMFILE, SYS_socketpair, family, type, protocol, pair);
}
int eventfd(unsigned value, int flags) noexcept {
  return System(Resource::Socket, EMFILE, SYS_eventfd2, value, flags);
}
int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  return System(Resource::Bind, EADDRINUSE, SYS_bind, descriptor, address, size);
}
int connect(int descriptor, const sockaddr* address, socklen_t size) {
  return System(Resource::Connect, ENETUNREACH, SYS_connect, descriptor, address, size);
}
struct Start {
  void* (*body)(void*);
  void* argument;
};
static void* Begin(void* given) {
  const Start start = *static_cast<Start*>(given);
  std::free(given);
  kolvex_test::inLibrary = true;
  return start.body(start.argument);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  static auto* const create = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  if (!kolvex_test::inLibrary) {
    return create(thread, attributes, body, argument);
  }
  if (Fails(Resource::Thread)) {
    return EAGAIN;
  }
  // What the C library itself keeps for a thread stays with the next one, which would look like a leak.
  const kolvex_test::Side ours(false);
  auto* const start = static_cast<Start*>(std::malloc(sizeof(Start)));
  *start = {body, argument};
  const int failed = create(thread, attributes, &Begin, start);
  if (failed != 0) {
    std::free(start);
  }
  return failed;
}

}  // extern "C"
