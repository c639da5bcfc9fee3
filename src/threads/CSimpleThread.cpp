#include "threads/CSimpleThread.h"

#include <new>

namespace sarnevo::thread {

CSimpleThread::~CSimpleThread() = default;

bool CSimpleThread::Start(const std::string& name) {
  if (!AwaitDeparture()) {
    return false;
  }
  departing_.store(false, std::memory_order_relaxed);
  try {
    name_ = name;
  } catch (const std::bad_alloc&) {
    thread_.Release();
    return false;
  }
  return thread_.Start(name_, [this, owner = owner_.lock()] { Run(); });
}

bool CSimpleThread::Join() {
  if (IsOwnThread()) {
    departing_.store(true, std::memory_order_relaxed);
  } else {
    thread_.Wait();
    thread_.Release();
  }
  return true;
}

bool CSimpleThread::AwaitDeparture() {
  return !thread_.HasHandle() || (departing_.load(std::memory_order_relaxed) && thread_.Wait());
}

}  // namespace sarnevo::thread
