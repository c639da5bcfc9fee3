#include "threads/CBaseThread.h"

#include "threads/Timeout.h"

namespace sarnevo {

namespace {

constexpr u32 kDestructorTimeoutMs = 2000;

// How long an interrupted thread gets to unwind, and how long it is watched for a stay in the host after
// that. Together well below the 100 ms that a stop may take beyond its time-out.
constexpr int kInterrupts = 6;
constexpr platform::Milliseconds kInterruptPause{5};
constexpr platform::Milliseconds kAbandonMoment{20};

}  // namespace

CBaseThread::CBaseThread() noexcept = default;

CBaseThread::~CBaseThread() {
  if (!CBaseThread::Stop(kDestructorTimeoutMs)) {
    // The host destroys the object inside a callback on this very thread. It ends behind that callback.
    thread_.Abandon(platform::Milliseconds{0});
  }
}

bool CBaseThread::Start(const std::string& name) {
  // A thread without its stop event could neither be paced nor stopped.
  if (!stopEvent.Reset() || IsAlive()) {
    return false;
  }
  CloseThreadHandle();
  name_ = name;
  return thread_.Start(name_, [this] {
    threadId_.store(platform::CurrentThreadId(), std::memory_order_relaxed);
    try {
      Run();
    } catch (...) {
      // Ends the thread; whoever implements Run catches what should not.
    }
    threadId_.store(0, std::memory_order_relaxed);
  });
}

bool CBaseThread::Stop(u32 timeoutMs) {
  stopEvent.Set();
  if (IsOwnThread()) {
    return false;
  }
  if (!thread_.HasHandle()) {
    return true;
  }
  if (thread_.Wait(TimeoutOf(timeoutMs)) == platform::WaitResult::TimedOut) {
    EndByForce();
  }
  CloseThreadHandle();
  return true;
}

void CBaseThread::EndByForce() {
  for (;;) {
    for (int i = 0; i < kInterrupts && interrupt_; ++i) {
      interrupt_();
      if (thread_.Wait(kInterruptPause) == platform::WaitResult::Signalled) {
        return;
      }
    }
    if (thread_.Abandon(kAbandonMoment)) {
      return;
    }
  }
}

bool CBaseThread::IsOwnThread() const noexcept {
  return threadId_.load(std::memory_order_relaxed) == platform::CurrentThreadId();
}

void CBaseThread::CloseThreadHandle() noexcept {
  thread_.Release();
  threadId_.store(0, std::memory_order_relaxed);
}

}  // namespace sarnevo
