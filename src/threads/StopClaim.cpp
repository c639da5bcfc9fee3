#include "threads/StopClaim.h"

#include <mutex>

#include "threads/StoppableThread.h"

namespace sarnevo {

namespace {

// Of all claims, so that of two threads that are about to wait for each other one sees the other's. Held for moments.
std::mutex claimsLock;

}  // namespace

thread_local const StopClaim* StopClaim::workedFor = nullptr;

bool StopClaim::Take() noexcept {
  const std::lock_guard guard(claimsLock);
  const StopClaim* const own = WorkedFor();
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

bool StopClaim::IsWorkedFor() const noexcept { return WorkedFor() == this; }

bool StopClaim::WorksForAny() noexcept { return WorkedFor() != nullptr; }

bool StopClaim::WorksForTaken() noexcept {
  const std::lock_guard guard(claimsLock);
  const StopClaim* const own = WorkedFor();
  return own != nullptr && own->taken_;
}

bool StopClaim::WorksFor(const void* owner) noexcept {
  const StopClaim* const own = WorkedFor();
  return own != nullptr && own->owner_ == owner;
}

const StopClaim* StopClaim::WorkedFor() noexcept { return own_thread::IsLetGo() ? nullptr : workedFor; }

}  // namespace sarnevo
