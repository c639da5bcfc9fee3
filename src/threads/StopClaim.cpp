#include "threads/StopClaim.h"

#include <mutex>

#include "threads/StoppableThread.h"

namespace sarnevo {

namespace {

// Of all claims, so that of two threads that are about to wait for each other one sees the other's. Held for moments.
std::mutex claimsLock;

}  // namespace

thread_local const StopClaim* StopClaim::callers = nullptr;

bool StopClaim::Take() noexcept {
  const std::lock_guard guard(claimsLock);
  const StopClaim* const own = Caller();
  if (!taken_ && own != nullptr && own != this && own->taken_) {
    return false;
  }
  taken_ = true;
  return true;
}

void StopClaim::Drop() noexcept {
  const std::lock_guard guard(claimsLock);
  taken_ = false;
}

bool StopClaim::IsCallers() const noexcept { return Caller() == this; }

bool StopClaim::HasCaller() noexcept { return Caller() != nullptr; }

bool StopClaim::IsCallerTaken() noexcept {
  const std::lock_guard guard(claimsLock);
  const StopClaim* const own = Caller();
  return own != nullptr && own->taken_;
}

bool StopClaim::IsCallerOf(const void* owner) noexcept {
  const StopClaim* const own = Caller();
  return own != nullptr && own->owner_ == owner;
}

const StopClaim* StopClaim::Caller() noexcept { return own_thread::IsLetGo() ? nullptr : callers; }

}  // namespace sarnevo
