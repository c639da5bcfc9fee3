#include "threads/CSimpleThread.h"

#include <mutex>
#include <utility>

namespace sarnevo::thread {

CSimpleThread::~CSimpleThread() = default;

bool CSimpleThread::Start(const std::string& name) {
  if (HasThread() || !AwaitDeparture()) {
    return false;
  }
  const std::lock_guard guard(handleLock_);
  departing_.Release();
  name_ = name;
  return thread_.Start(name_, [this] { Run(); });
}

bool CSimpleThread::Join() {
  {
    const std::lock_guard guard(handleLock_);
    if (!thread_.HasHandle()) {
      return true;
    }
    if (thread_.IsCurrent()) {
      if (!joining_) {
        departing_ = std::move(thread_);
      }
      return true;
    }
    joining_ = true;
  }
  thread_.Wait();
  const std::lock_guard guard(handleLock_);
  thread_.Release();
  joining_ = false;
  return true;
}

bool CSimpleThread::HasThread() noexcept {
  const std::lock_guard guard(handleLock_);
  return thread_.HasHandle();
}

bool CSimpleThread::AwaitDeparture() noexcept {
  if (departing_.IsCurrent()) {
    return false;
  }
  departing_.Wait();
  return true;
}

void CSimpleThread::AbandonOrAwaitDeparture() noexcept {
  if (!AwaitDeparture()) {
    departing_.Abandon(platform::Milliseconds{0});
  }
}

}  // namespace sarnevo::thread
