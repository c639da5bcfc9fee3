#include "Witness.h"

#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> threadsMade{0};
std::atomic<std::size_t> bytesSent{0};
std::mutex reportLock;
std::string report;  // under reportLock

void Note(const char* what) {
  if (watching) {
    const std::lock_guard guard(reportLock);
    report += std::string(what) + "\n";
  }
}

template <typename Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether a thread that starts with these leaves the host's signals to the host, and its own faults to the host's
// handlers. (A library's thread that starts without a mask may block those, too.)
bool LeavesSignalsToTheHost(const pthread_attr_t* attributes) {
  sigset_t mask;
  const bool hasMask = attributes != nullptr && pthread_attr_getsigmask_np(attributes, &mask) == 0;
  if (!hasMask) {
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  }
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const bool internal = signal >= 32 && signal < SIGRTMIN;  // of the thread library; can't be blocked
    const bool fault = signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL ||
                       signal == SIGTRAP || signal == SIGSYS || signal == SIGABRT;
    const bool mayBe = internal || signal == SIGKILL || signal == SIGSTOP || (fault && !hasMask);
    if (!mayBe && (sigismember(&mask, signal) != 0) == fault) {
      return false;
    }
  }
  return true;
}

// The simulated cameras' addresses.
bool IsCamera(const sockaddr* address) {
  const auto* const internet = reinterpret_cast<const sockaddr_in*>(address);
  const in_addr_t host = address->sa_family == AF_INET ? ntohl(internet->sin_addr.s_addr) : 0;
  return host == INADDR_LOOPBACK + 0x100 || host == INADDR_LOOPBACK + 0x200;
}

}  // namespace

// The system's own function, after a look at what is asked of it.
#define WATCHED(result, name, parameters, arguments, isWrong) \
  result name parameters {                                    \
    if (isWrong) {                                            \
      Note(#name);                                            \
    }                                                         \
    return Next(&name, #name) arguments;                      \
  }

#pragma GCC visibility push(default)
// Variadic in the system's header.
int Open(const char* path, int flags, mode_t mode) __asm__("open");
int OpenAt(int folder, const char* path, int flags, mode_t mode) __asm__("openat");

extern "C" {

using SignalHandler = void (*)(int);
// These change what is the process's own.
WATCHED(int, sigaction, (int number, const struct sigaction* now, struct sigaction* old) noexcept,
        (number, now, old), now != nullptr)
WATCHED(SignalHandler, signal, (int number, SignalHandler handler) noexcept, (number, handler), true)
WATCHED(char*, setlocale, (int category, const char* name) noexcept, (category, name), name != nullptr)
WATCHED(mode_t, umask, (mode_t mask) noexcept, (mask), true)
WATCHED(int, setenv, (const char* name, const char* value, int replace) noexcept, (name, value, replace), true)
WATCHED(int, unsetenv, (const char* name) noexcept, (name), true)
WATCHED(int, putenv, (char* text) noexcept, (text), true)
WATCHED(int, clearenv, () noexcept, (), true)
WATCHED(int, chdir, (const char* path) noexcept, (path), true)
WATCHED(int, fchdir, (int folder) noexcept, (folder), true)
WATCHED(int, setrlimit, (__rlimit_resource_t resource, const rlimit* limit) noexcept, (resource, limit), true)
WATCHED(int, prlimit, (pid_t process, __rlimit_resource resource, const rlimit* limit, rlimit* old) noexcept,
        (process, resource, limit, old), limit != nullptr)
// A thread of the library's own begins with its mask.
WATCHED(int, pthread_sigmask, (int how, const sigset_t* now, sigset_t* old) noexcept, (how, now, old),
        now != nullptr && getpid() == gettid())
WATCHED(int, rand, () noexcept, (), true)
WATCHED(void, srand, (unsigned seed) noexcept, (seed), true)
// These make descriptors that no other program gets.
WATCHED(int, socket, (int domain, int type, int protocol) noexcept, (domain, type, protocol),
        (type & SOCK_CLOEXEC) == 0)
// These may go to the cameras alone.
WATCHED(int, connect, (int socket, const sockaddr* address, socklen_t size), (socket, address, size),
        !IsCamera(address))
WATCHED(ssize_t, sendto,
        (int socket, const void* data, size_t size, int flags, const sockaddr* address, socklen_t length),
        (socket, data, size, flags, address, length), address != nullptr && !IsCamera(address))
// These may raise no SIGPIPE.
WATCHED(ssize_t, send, (int socket, const void* data, size_t size, int flags), (socket, data, size, flags),
        (bytesSent += size, (flags & MSG_NOSIGNAL) == 0))
WATCHED(ssize_t, sendmsg, (int socket, const msghdr* message, int flags), (socket, message, flags),
        (flags & MSG_NOSIGNAL) == 0)
// A thread takes none of the host's signals, and hides none of its faults.
WATCHED(int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) noexcept,
        (thread, attributes, body, argument), (++threadsMade, !LeavesSignalsToTheHost(attributes)))

}  // extern "C"

int Open(const char* path, int flags, mode_t mode) {
  if ((flags & O_CLOEXEC) == 0) {
    Note("open");
  }
  return Next(&Open, "open")(path, flags, mode);
}

int OpenAt(int folder, const char* path, int flags, mode_t mode) {
  if ((flags & O_CLOEXEC) == 0) {
    Note("openat");
  }
  return Next(&OpenAt, "openat")(folder, path, flags, mode);
}
#pragma GCC visibility pop

namespace kolvex_test {

Witness::Witness() {
  const std::lock_guard guard(reportLock);
  report.clear();
  threadsMade = 0;
  bytesSent = 0;
  watching = true;
}

Witness::~Witness() { watching = false; }

std::string Witness::Report() const {
  const std::lock_guard guard(reportLock);
  // A run that is whole makes more.
  return report + (threadsMade < 8 || bytesSent < 1000 ? "hardly anything to be seen\n" : "");
}

}  // namespace kolvex_test
