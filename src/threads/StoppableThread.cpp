#include "threads/StoppableThread.h"

#include <string>

#include "platform/Clock.h"
#include "platform/Event.h"
#include "platform/HostProcess.h"

namespace sarnevo {

using platform::Milliseconds;

namespace {

// How long a thread must have been in its last call of the host before it is let go there: one that is just entering
// may not have reached the host's object yet, and would still read it.
constexpr Milliseconds kSettled{10};

// Where a thread is, for whoever may want to let it go.
enum class Place {
  Ours,   // in code of the library
  Host,   // in code of the host
  LetGo,  // the same, or on its way out
  Ended,
};

}  // namespace

struct StoppableThread::Control {
  Control(std::string_view itsName, std::shared_ptr<const void> object, std::function<void()> work)
      : name(itsName), kept(std::move(object)), body(std::move(work)) {}

  const std::string name;  // whole, for diagnosis; the system keeps less of it
  // The thread only, from its start on.
  std::shared_ptr<const void> kept;
  std::function<void()> body;
  std::stop_source interrupt;
  platform::Event interrupted{false, true};  // set with it, for pauses, which thus allocate nothing
  platform::Event started{false, true};      // the handle is there, so that the body may use it
  platform::Event over{false, true};         // ended or let go
  int hostDepth = 0;  // the thread only: how deep in calls of the host, one inside the other

  // The thread moves between Ours and Host without a lock, which keeps a call of the host cheap. It leaves Host by
  // compare-exchange, so that exactly one of "returned" and "let go" wins.
  std::atomic<Place> place{Place::Ours};
  // Set by whoever lets the thread go or interrupts it. Sequentially consistent, and so are the moves into Host and the
  // looks at both: either the thread sees this before its call, or the one who set it sees the thread in Host.
  std::atomic<bool> barred{false};

  Place Look() const { return place.load(std::memory_order_seq_cst); }
  bool IsOver() const { return Look() >= Place::LetGo; }
  bool LeaveHostFor(Place to) {
    Place from = Place::Host;
    return place.compare_exchange_strong(from, to, std::memory_order_acq_rel);
  }

  void Run() {
    started.Wait();
    try {
      body();
    } catch (...) {
      // A thread has nobody to report to; its objects show it by what they no longer do.
    }
    // What it owns goes before anybody hears of the end.
    body = nullptr;
    kept.reset();
    place.store(Place::Ended, std::memory_order_release);
    over.Set();
  }

  void LetGo() {
    platform::KeepLibraryLoaded();  // the thread comes back into its code at some time, perhaps after a dlclose
    if (LeaveHostFor(Place::LetGo)) {
      over.Set();
    }
  }

  void LetGoOrInterrupt() {
    barred.store(true, std::memory_order_seq_cst);
    if (over.Wait(kSettled)) {
      return;
    }
    // It can't get into another call but an owed one, so that one that is in the host has been in this call all the time.
    // One whose call is being refused may be seen here, too, and returns as one that was let go.
    if (Look() == Place::Host) {
      LetGo();
    }
    if (!IsOver()) {
      interrupted.Set();
      interrupt.request_stop();
      over.Wait();
    }
  }
};

namespace {

thread_local StoppableThread::Control* current = nullptr;

}  // namespace

bool StoppableThread::StartBody(std::string_view name, std::function<void()> body,
                                platform::ThreadPriority priority) {
  Release();
  const auto control = std::make_shared<Control>(name, kept_.lock(), std::move(body));
  control_ = control;
  running_.store(control.get(), std::memory_order_relaxed);
  const auto run = [control] {
    current = control.get();
    control->Run();
    current = nullptr;
  };
  if (!thread_.Start(name, run, priority)) {
    Release();
    return false;
  }
  control->started.Set();
  return true;
}

bool StoppableThread::HasHandle() const noexcept { return control_ != nullptr; }

bool StoppableThread::IsAlive() const noexcept { return control_ && !control_->IsOver(); }

bool StoppableThread::IsOwnThread() const noexcept {
  return current != nullptr && running_.load(std::memory_order_relaxed) == current;
}

bool StoppableThread::Wait() noexcept { return !IsOwnThread() && (!control_ || control_->over.Wait()); }

bool StoppableThread::End(Milliseconds patience) noexcept {
  bool inTime = true;
  if (IsOwnThread()) {
    own_thread::LetGo();
  } else if (control_ && !control_->over.Wait(patience)) {
    inTime = false;
    control_->LetGoOrInterrupt();
  }
  Release();
  return inTime;
}

void StoppableThread::Release() noexcept {
  if (control_ && control_->Look() == Place::Ended && !IsOwnThread()) {
    thread_.Join();
  } else {
    thread_.Detach();
  }
  control_.reset();
  running_.store(nullptr, std::memory_order_relaxed);
}

namespace own_thread {

bool IsLetGo() noexcept { return current != nullptr && current->Look() == Place::LetGo; }

void LetGo() noexcept {
  if (current != nullptr && current->hostDepth > 0) {
    current->LetGo();
  }
}

std::stop_token InterruptToken() noexcept {
  return current != nullptr ? current->interrupt.get_token() : std::stop_token{};
}

void Pause(Milliseconds duration) noexcept {
  if (current != nullptr) {
    current->interrupted.Wait(duration);
  } else {
    platform::Sleep(duration);
  }
}

bool EnterHost(bool evenIfLetGo) noexcept {
  if (current == nullptr || ++current->hostDepth > 1) {
    return true;
  }
  if (current->Look() == Place::LetGo) {
    if (!evenIfLetGo) {
      --current->hostDepth;
    }
    return evenIfLetGo;
  }
  current->place.store(Place::Host, std::memory_order_seq_cst);
  if (evenIfLetGo || !current->barred.load(std::memory_order_seq_cst)) {
    return true;
  }
  LeaveHost();
  return false;
}

bool LeaveHost() noexcept {
  if (current == nullptr || --current->hostDepth > 0) {
    return true;
  }
  return current->LeaveHostFor(Place::Ours) && !current->barred.load(std::memory_order_relaxed);
}

}  // namespace own_thread

}  // namespace sarnevo
