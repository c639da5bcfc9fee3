#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "kolvex/Types.h"
#include "platform/Event.h"

namespace sarnevo {

/// The general lock: recursive, spins for a while in user mode, and only then waits on an event.
///
/// A free lock costs one interlocked operation and no call into the system. Reports nothing and knows no
/// time-out. Leave without holding the lock is outside the contract.
class COptex {
 public:
  /// Spin count of all locks of the system.
  static constexpr u32 kSpinCount = 4000;

  /// @param spinCount  how many extra attempts TryEnter makes; ignored on a single processor.
  /// @param name       null for a lock of this process.
  explicit COptex(u32 spinCount = kSpinCount, const char* name = nullptr);
  ~COptex();
  COptex(const COptex&) = delete;
  COptex& operator=(const COptex&) = delete;

  void SetSpinCount(u32 spinCount) noexcept;
  void Enter() noexcept;
  bool TryEnter() noexcept;
  void Leave() noexcept;

 private:
  // Four 32-bit words, 16 bytes in all; the layout is that of the form in shared memory.
  struct Block {
    std::atomic<u32> spinCount{0};
    std::atomic<i32> lockCount{0};    // entries and waiters; 0 is free
    std::atomic<u32> ownerThread{0};  // written by the owner only; others only compare it with their own id
    i32 recursion = 0;                // the owner only
  };

  platform::Event event_;  // auto-reset; wakes one waiter
  std::unique_ptr<Block> block_;
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
