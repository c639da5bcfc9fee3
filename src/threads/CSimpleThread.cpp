#include "threads/CSimpleThread.h"

namespace sarnevo::thread {

bool CSimpleThread::Start(const std::string& name) {
  if (!AwaitDeparture()) {
    return false;
  }
  departing_.store(false, std::memory_order_relaxed);
  return thread_.Start(name, [this] { Run(); });
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
