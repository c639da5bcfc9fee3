#pragma once

#include <atomic>
#include <memory>

#include "kolvex/Types.h"
#include "platform/EventWord.h"

namespace sarnevo {

/// The general lock: recursive, spins for a while in user mode, and only then waits on an event.
///
/// A free lock costs one interlocked operation and no call into the system; only a waiter, and a leaving
/// owner that finds one, enter the kernel. Reports nothing and knows no time-out. Leave without holding the
/// lock is outside the contract, and so is an owner that ends without leaving, in any process.
class COptex {
 public:
  /// Spin count of all locks of the system.
  static constexpr u32 kSpinCount = 4000;

  /// @param spinCount  how many extra attempts TryEnter makes; ignored on a single processor.
  /// @param name       null for a lock of this process. Locks of one name, in any process of this user,
  ///                   are one lock. Up to 87 bytes count. When the system can't share the name, the lock
  ///                   still works, among those that use this very object.
  explicit COptex(u32 spinCount = kSpinCount, const char* name = nullptr) noexcept;
  /// The same with the machine's kind given, for tests.
  COptex(u32 spinCount, const char* name, bool singleProcessor) noexcept;
  ~COptex();
  COptex(const COptex&) = delete;
  COptex& operator=(const COptex&) = delete;

  /// Of a named lock it changes the count for all its users.
  void SetSpinCount(u32 spinCount) noexcept;
  u32 SpinCount() const noexcept;

  /// Blocks until the lock is held.
  void Enter() noexcept;
  /// Makes SpinCount() + 1 attempts. False when the lock isn't held.
  bool TryEnter() noexcept;
  void Leave() noexcept;

 private:
  // Four 32-bit words, 16 bytes in all. All processes that share a lock read this layout.
  struct Block {
    std::atomic<u32> spinCount{0};
    std::atomic<i32> lockCount{0};    // entries and waiters; 0 is free
    std::atomic<u32> ownerThread{0};  // written by the owner only; others only compare it with their own id
    i32 recursion = 0;                // the owner only
  };
  static_assert(sizeof(Block) == 16 && std::atomic<u32>::is_always_lock_free);
  struct Shared;

  bool TryOnce(u32 self) noexcept;
  void Own(u32 self) noexcept;

  const bool singleProcessor_;
  // Of an unnamed lock.
  Block ownBlock_;
  platform::EventWord ownEvent_;
  std::unique_ptr<Shared> shared_;  // of a named lock: both of these in shared memory
  Block* block_ = &ownBlock_;
  platform::EventWord* event_ = &ownEvent_;  // wakes one waiter
};

/// Holds a lock from construction to the end of the scope.
class COptexGuard {
 public:
  explicit COptexGuard(COptex& lock) noexcept : lock_(lock) { lock_.Enter(); }
  ~COptexGuard() { lock_.Leave(); }
  COptexGuard(const COptexGuard&) = delete;
  COptexGuard& operator=(const COptexGuard&) = delete;

 private:
  COptex& lock_;
};

}  // namespace sarnevo
