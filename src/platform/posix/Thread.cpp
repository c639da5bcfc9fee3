#include "platform/Thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <csetjmp>
#include <csignal>
#include <mutex>
#include <new>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace sarnevo::platform {

namespace {

// Untouched pages of a stack cost nothing, so this is room for the host's callbacks, not a cost.
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
// How far above the thread's own standing; needs a privilege that most hosts don't have.
constexpr int kAboveNormalSteps = 5;
// How long a thread must have stood in one call to the host before it is given up there.
constexpr Milliseconds kSettled{10};

// Where the thread stands, seen from whoever may want to give it up.
enum class Stand : std::uint32_t {
  Ours,       // in code of the library
  Host,       // in code of the host
  Abandoned,  // in code of the host, and to leave when that returns
  Ended,
};

// That, and in which of its calls to the host: in one word, so that a thread is given up in the very call that it
// was seen in. In the next one it may be just on its way in, with a pointer to an object of the host. Aligned like
// one, or compilers differ in whether it takes a library to read it.
struct alignas(2 * sizeof(std::uint32_t)) Place {
  Stand stand = Stand::Ours;
  std::uint32_t call = 0;

  bool operator==(const Place&) const = default;
};

}  // namespace

struct Thread::Control {
  std::function<void()> body;
  std::array<char, 16> name{};  // as much as the system takes, with the terminator
  ThreadPriority priority = ThreadPriority::Normal;
  pthread_t handle{};
  ThreadId id = 0;
  std::jmp_buf exit{};

  // The thread only: how deep in calls to the host, one inside the other.
  int hostDepth = 0;

  std::mutex lock;
  std::condition_variable changed;
  // The thread moves it between Ours and Host without the lock, which keeps a call to the host cheap. Both
  // moves to Abandoned and Ended happen under the lock, and the thread leaves Host by compare-exchange, so
  // that exactly one of "returned" and "abandoned" wins.
  std::atomic<Place> place{Place{}};
  static_assert(std::atomic<Place>::is_always_lock_free);
  bool joinable = true;  // under lock; cleared by whoever joins or detaches

  bool IsOver() const {
    const Stand now = Look().stand;
    return now == Stand::Ended || now == Stand::Abandoned;
  }

  Place Look() const { return place.load(std::memory_order_acquire); }

  // Out of call number @p call, unless the thread has left it.
  bool Move(std::uint32_t call, Stand to) {
    Place from{Stand::Host, call};
    return place.compare_exchange_strong(from, {to, call}, std::memory_order_acq_rel);
  }

  bool Abandon(std::uint32_t call) {
    const std::lock_guard guard(lock);
    if (!Move(call, Stand::Abandoned)) {
      return IsOver();
    }
    changed.notify_all();
    return true;
  }

  void End() {
    const std::lock_guard guard(lock);
    place.store({Stand::Ended, Look().call}, std::memory_order_release);
    changed.notify_all();
  }

  // The system still ends the thread when it has said its last word to us; wait for that, so that the
  // library may be unloaded behind it.
  void Reap() {
    {
      const std::lock_guard guard(lock);
      if (!joinable) {
        return;
      }
      joinable = false;
      if (Look().stand != Stand::Ended) {
        pthread_detach(handle);
        return;
      }
    }
    pthread_join(handle, nullptr);
  }
};

namespace {

thread_local Thread::Control* current = nullptr;
// Locks ask for the id at each entry, far too often for a call into the system.
thread_local ThreadId cachedId = 0;

// An abandoned thread comes back into code of this library at some time, perhaps after the host has
// unloaded it; so the code stays.
void KeepLibraryLoaded() noexcept {
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&KeepLibraryLoaded), &self) != 0 && self.dli_fname != nullptr) {
    dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

// What is sent to the process is the host's affair. A fault of the thread's own stays open: it may happen in code of
// the host, which has a handler for it.
sigset_t AsynchronousSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

void SetUp(Thread::Control& control) {
  current = &control;
  if (control.name[0] != '\0') {
    pthread_setname_np(pthread_self(), control.name.data());
  }
  if (control.priority == ThreadPriority::AboveNormal) {
    // On Linux this goes by thread. Refused without the privilege, and then nothing changes.
    const auto self = static_cast<id_t>(CurrentThreadId());
    setpriority(PRIO_PROCESS, self, getpriority(PRIO_PROCESS, self) - kAboveNormalSteps);
  }
}

void RunBody(Thread::Control& control) noexcept {
  try {
    control.body();
  } catch (...) {
    // A thread has nobody to tell; its objects tell by what they no longer do.
  }
}

// Any time-out fits: a year is as good as for ever here, and can't overflow the clock.
std::chrono::steady_clock::time_point Deadline(Milliseconds timeout) {
  return std::chrono::steady_clock::now() + std::min<Milliseconds>(timeout, std::chrono::hours{24 * 365});
}

void* Enter(void* argument) {
  auto* const own = static_cast<std::shared_ptr<Thread::Control>*>(argument);
  {
    // The creator fills in the id before it lets go of the lock.
    const std::lock_guard guard((*own)->lock);
    (*own)->id = CurrentThreadId();
    (*own)->changed.notify_all();
  }
  SetUp(**own);
  if (_setjmp((*own)->exit) == 0) {
    RunBody(**own);
  }
  current = nullptr;
  (*own)->End();
  delete own;
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

Thread::Thread() noexcept = default;

Thread::~Thread() { Release(); }

Thread::Thread(Thread&& other) noexcept = default;

Thread& Thread::operator=(Thread&& other) noexcept {
  if (this != &other) {
    Release();
    control_ = std::move(other.control_);
  }
  return *this;
}

bool Thread::Start(std::string_view name, std::function<void()> body, ThreadPriority priority) noexcept {
  Release();
  try {
    auto control = std::make_shared<Control>();
    control->body = std::move(body);
    std::copy_n(name.begin(), std::min(name.size(), control->name.size() - 1), control->name.begin());
    control->priority = priority;
    auto own = std::make_unique<std::shared_ptr<Control>>(control);

    // Nothing throws from here to the end of the attributes, which hold memory of their own.
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
      return false;
    }
    const sigset_t blocked = AsynchronousSignals();
    pthread_attr_setsigmask_np(&attributes, &blocked);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    // Holding the lock keeps the new thread at its door until the handle stands, so that the body may ask it.
    std::unique_lock guard(control->lock);
    control_ = control;
    const int failed = pthread_create(&control->handle, &attributes, &Enter, own.get());
    pthread_attr_destroy(&attributes);
    if (failed != 0) {
      control_.reset();
      return false;
    }
    static_cast<void>(own.release());
    control->changed.wait(guard, [&control] { return control->id != 0; });
    return true;
  } catch (const std::exception&) {
    return false;  // no memory
  }
}

bool Thread::HasHandle() const noexcept { return control_ != nullptr; }

bool Thread::IsAlive() const noexcept {
  if (!control_) {
    return false;
  }
  return !control_->IsOver();
}

bool Thread::IsCurrent() const noexcept { return control_ && control_.get() == current; }

WaitResult Thread::Wait() noexcept { return Wait(Milliseconds::max()); }

WaitResult Thread::Wait(Milliseconds timeout) noexcept {
  if (!control_ || IsCurrent()) {
    return WaitResult::Failed;
  }
  {
    std::unique_lock guard(control_->lock);
    const auto over = [this] { return control_->IsOver(); };
    if (timeout == Milliseconds::max()) {
      control_->changed.wait(guard, over);
    } else if (!control_->changed.wait_until(guard, Deadline(timeout), over)) {
      return WaitResult::TimedOut;
    }
  }
  control_->Reap();
  return WaitResult::Signalled;
}

bool Thread::Abandon(Milliseconds moment) noexcept {
  if (!control_) {
    return true;
  }
  if (IsCurrent()) {
    return current_thread::Abandon();
  }
  KeepLibraryLoaded();
  // A thread that enters the host tells nobody, so this one looks again and again; it is the rare end of a
  // stop that has already waited for seconds.
  const auto deadline = Deadline(moment);
  auto inThisCallSince = std::chrono::steady_clock::now();
  Place seen = control_->Look();
  while (!control_->IsOver()) {
    const auto now = std::chrono::steady_clock::now();
    if (const Place latest = control_->Look(); latest != seen || latest.stand != Stand::Host) {
      seen = latest;
      inThisCallSince = now;
      if (now >= deadline) {
        return false;
      }
    } else if (now - inThisCallSince >= kSettled && control_->Abandon(seen.call)) {
      break;
    }
    std::unique_lock guard(control_->lock);
    control_->changed.wait_for(guard, Milliseconds{1}, [this] { return control_->IsOver(); });
  }
  control_->Reap();
  return true;
}

void Thread::Release() noexcept {
  if (control_) {
    control_->Reap();
    control_.reset();
  }
}

namespace current_thread {

void EnterHost() noexcept {
  if (current != nullptr && ++current->hostDepth == 1) {
    const std::uint32_t call = current->place.load(std::memory_order_relaxed).call + 1;
    current->place.store({Stand::Host, call}, std::memory_order_release);
  }
}

bool LeaveHost() noexcept {
  if (current == nullptr || --current->hostDepth > 0) {
    return true;
  }
  return current->Move(current->place.load(std::memory_order_relaxed).call, Stand::Ours);
}

bool IsAbandoned() noexcept { return current != nullptr && current->Look().stand == Stand::Abandoned; }

bool Abandon() noexcept {
  if (current == nullptr || current->hostDepth == 0) {
    return false;
  }
  KeepLibraryLoaded();
  return current->Abandon(current->Look().call);
}

void Leave() noexcept { _longjmp(current->exit, 1); }

}  // namespace current_thread

}  // namespace sarnevo::platform
