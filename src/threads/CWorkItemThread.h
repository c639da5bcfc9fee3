#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "kolvex/Types.h"
#include "platform/Event.h"
#include "threads/CSimpleThread.h"

namespace sarnevo::thread {

/// A thread that owns a queue of work items and hands them, one at a time and in order, to a handler, so
/// that whoever posts never waits for the work.
///
/// Any thread may post. Start, Stop and destruction belong to one thread at a time, the owner's; the
/// handler may call Stop. HandleWorkItem is virtual, so the owner calls Stop before the derived part goes.
class CWorkItemThread : protected CSimpleThread {
 public:
  /// What the derived class wants done. The queue only destroys it.
  class IWorkItem {
   public:
    virtual ~IWorkItem() = default;
  };

  using CSimpleThread::IsOwnThread;
  using CSimpleThread::KeepAlive;

  CWorkItemThread() noexcept = default;
  ~CWorkItemThread() override;

  /// False while there is a thread, and when none can be made. After the latter items are still taken and lie
  /// there until Stop.
  bool Start(const std::string& name);

  /// Takes no more items, destroys those that wait, and waits, however long it takes, for the one in
  /// progress; not when called by the handler, after which the thread ends.
  void Stop();
  /// The first half of Stop, which waits for nothing.
  void RequestStop();

  /// Queues @p item before all others or after them. True: the queue owns it now. False, unstarted or
  /// stopped, for null, and without memory: it stays the caller's.
  bool PostWorkItem(IWorkItem* item, u8 atFront);

 protected:
  void Run() override;
  /// Does one item, on the thread and without a lock. Doesn't keep it. What it throws is dropped.
  virtual void HandleWorkItem(IWorkItem* item) = 0;

 private:
  std::unique_ptr<IWorkItem> TakeWorkItem();
  void ClearWorkItems();

  std::recursive_mutex queueLock_;
  std::list<std::unique_ptr<IWorkItem>> queue_;  // guarded by queueLock_
  platform::Event wakeEvent_;
  // Written by the owner, and by a handler that stops; read by the thread between two items and by posters.
  std::atomic<bool> running_{false};
};

}  // namespace sarnevo::thread
