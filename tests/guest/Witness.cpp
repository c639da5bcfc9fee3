#include "Witness.h"

#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include <dlfcn.h>
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

// Whether a thread that starts with this mask leaves the host's signals to the host.
bool BlocksAll(const sigset_t& mask) {
  for (int signal = 1; signal < SIGRTMIN; ++signal) {
    const bool internal = signal >= 32;  // of the thread library; can't be blocked
    if (!internal && signal != SIGKILL && signal != SIGSTOP && sigismember(&mask, signal) == 0) {
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

// The system's own function, told first.
#define WATCHED(result, name, parameters, arguments, changes) \
  result name parameters noexcept {                           \
    if (changes) {                                            \
      Note(#name);                                            \
    }                                                         \
    return Next(&name, #name) arguments;                      \
  }

#pragma GCC visibility push(default)
extern "C" {

using SignalHandler = void (*)(int);
WATCHED(int, sigaction, (int number, const struct sigaction* now, struct sigaction* old), (number, now, old),
        now != nullptr)
WATCHED(SignalHandler, signal, (int number, SignalHandler handler), (number, handler), true)
WATCHED(char*, setlocale, (int category, const char* name), (category, name), name != nullptr)
WATCHED(mode_t, umask, (mode_t mask), (mask), true)
WATCHED(int, setenv, (const char* name, const char* value, int replace), (name, value, replace), true)
WATCHED(int, unsetenv, (const char* name), (name), true)
WATCHED(int, putenv, (char* text), (text), true)
WATCHED(int, chdir, (const char* path), (path), true)
WATCHED(int, fchdir, (int folder), (folder), true)
WATCHED(int, setrlimit, (__rlimit_resource_t resource, const rlimit* limit), (resource, limit), true)
WATCHED(int, rand, (), (), true)
WATCHED(void, srand, (unsigned seed), (seed), true)

int connect(int socket, const sockaddr* address, socklen_t size) {
  if (!IsCamera(address)) {
    Note("connect to somebody else");
  }
  return Next(&connect, "connect")(socket, address, size);
}

ssize_t sendto(int socket, const void* data, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  if (address != nullptr && !IsCamera(address)) {
    Note("sendto somebody else");
  }
  return Next(&sendto, "sendto")(socket, data, size, flags, address, length);
}

ssize_t send(int socket, const void* data, size_t size, int flags) {
  if ((flags & MSG_NOSIGNAL) == 0) {
    Note("send without MSG_NOSIGNAL");
  }
  bytesSent += size;
  return Next(&send, "send")(socket, data, size, flags);
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  if ((flags & MSG_NOSIGNAL) == 0) {
    Note("sendmsg without MSG_NOSIGNAL");
  }
  return Next(&sendmsg, "sendmsg")(socket, message, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  sigset_t mask;
  if (attributes == nullptr || pthread_attr_getsigmask_np(attributes, &mask) != 0) {
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  }
  if (!BlocksAll(mask)) {
    Note("a thread that takes signals");
  }
  threadsMade += watching ? 1 : 0;
  return Next(&pthread_create, "pthread_create")(thread, attributes, body, argument);
}

}  // extern "C"
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
  return report;
}

std::size_t Witness::ThreadsMade() const { return threadsMade; }

std::size_t Witness::BytesSent() const { return bytesSent; }

}  // namespace kolvex_test
