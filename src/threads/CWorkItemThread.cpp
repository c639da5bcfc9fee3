#include "threads/CWorkItemThread.h"

#include <mutex>
#include <new>

namespace sarnevo::thread {

namespace {

// A safety net: a stop sets the wake-up, too.
constexpr platform::Milliseconds kRunningCheck{1000};

}  // namespace

CWorkItemThread::~CWorkItemThread() { Stop(); }

bool CWorkItemThread::Start(const std::string& name) {
  // A thread that stopped itself must not see `running` set again.
  if (!AwaitDeparture()) {
    return false;
  }
  running_.store(true, std::memory_order_release);
  return CSimpleThread::Start(name);
}

void CWorkItemThread::Stop() {
  RequestStop();
  Join();
}

void CWorkItemThread::RequestStop() {
  running_.store(false, std::memory_order_release);
  ClearWorkItems();
  wakeEvent_.Set();
}

bool CWorkItemThread::PostWorkItem(IWorkItem* item, u8 atFront) {
  const std::lock_guard guard(queueLock_);
  // Under the lock, so that nothing gets in after the clearing of a stop.
  if (!running_.load(std::memory_order_acquire) || item == nullptr) {
    return false;
  }
  try {
    queue_.emplace(atFront != 0 ? queue_.begin() : queue_.end(), item);
  } catch (const std::bad_alloc&) {
    return false;
  }
  wakeEvent_.Set();
  return true;
}

std::unique_ptr<CWorkItemThread::IWorkItem> CWorkItemThread::TakeWorkItem() {
  const std::lock_guard guard(queueLock_);
  if (queue_.empty()) {
    return nullptr;
  }
  std::unique_ptr<IWorkItem> item = std::move(queue_.front());
  queue_.pop_front();
  return item;
}

void CWorkItemThread::ClearWorkItems() {
  const std::lock_guard guard(queueLock_);
  queue_.clear();
}

void CWorkItemThread::Run() {
  while (running_.load(std::memory_order_acquire)) {
    if (!wakeEvent_.Wait(kRunningCheck)) {
      continue;
    }
    for (auto item = TakeWorkItem(); running_.load(std::memory_order_acquire) && item; item = TakeWorkItem()) {
      try {
        HandleWorkItem(item.get());
      } catch (...) {
        // Ends this item only.
      }
    }
  }
  ClearWorkItems();
}

}  // namespace sarnevo::thread
