#include "platform/Thread.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <utility>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace sarnevo::platform {

namespace {

// Room for the host's callbacks. Untouched pages of a stack cost nothing.
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
// Steps above the priority that the thread starts with; needs a privilege that most hosts don't have.
constexpr int kAboveNormalSteps = 5;

// Locks ask for the id at each entry, far too often for a call into the system.
thread_local ThreadId cachedId = 0;

// What a new thread begins with; it owns this.
struct Beginning {
  std::function<void()> body;
  std::array<char, 16> name{};  // as much as the system takes, with the terminator
  ThreadPriority priority;
};

// All signals but those of the thread's own faults. Signals to the process belong to the host's threads. A fault may
// happen in a callback of the host, and the host may have a handler for it.
sigset_t AsynchronousSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

void* Enter(void* argument) {
  const std::unique_ptr<Beginning> own(static_cast<Beginning*>(argument));
  if (own->name[0] != '\0') {
    pthread_setname_np(pthread_self(), own->name.data());
  }
  if (own->priority == ThreadPriority::AboveNormal) {
    // On Linux this goes by thread. Refused without the privilege, and then nothing changes.
    const auto self = static_cast<id_t>(CurrentThreadId());
    setpriority(PRIO_PROCESS, self, getpriority(PRIO_PROCESS, self) - kAboveNormalSteps);
  }
  own->body();
  return nullptr;
}

}  // namespace

ThreadId CurrentThreadId() noexcept {
  if (cachedId == 0) {
    // A forked process goes on with this thread under a new id.
    static const int registered = pthread_atfork(nullptr, nullptr, [] { cachedId = 0; });
    static_cast<void>(registered);
    cachedId = static_cast<ThreadId>(gettid());
  }
  return cachedId;
}

bool Thread::Start(std::string_view name, std::function<void()> body, ThreadPriority priority) {
  auto own = std::make_unique<Beginning>(Beginning{std::move(body), {}, priority});
  std::copy_n(name.begin(), std::min(name.size(), own->name.size() - 1), own->name.begin());
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) {
    return false;
  }
  const sigset_t blocked = AsynchronousSignals();
  pthread_attr_setsigmask_np(&attributes, &blocked);
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_t created{};
  const int failed = pthread_create(&created, &attributes, &Enter, own.get());
  pthread_attr_destroy(&attributes);
  if (failed != 0) {
    return false;
  }
  static_cast<void>(own.release());
  handle_ = created;
  return true;
}

void Thread::Join() noexcept {
  if (handle_) {
    pthread_join(*handle_, nullptr);
    handle_.reset();
  }
}

void Thread::Detach() noexcept {
  if (handle_) {
    pthread_detach(*handle_);
    handle_.reset();
  }
}

}  // namespace sarnevo::platform
