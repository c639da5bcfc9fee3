#include "video/FrameLease.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>

#include "threads/HostCall.h"

namespace sarnevo {

namespace {

thread_local FrameLease* current = nullptr;

}  // namespace

// The leases of threads that were given up inside a callback. Nearly always empty; nothing on the usual road
// of a frame comes here.
class GivenUpLeases {
 public:
  // Never destroyed: a given-up thread may come back while the process ends. Takes nothing from the heap, so
  // that a host that unloads the library leaks nothing.
  static GivenUpLeases& Get() noexcept {
    alignas(GivenUpLeases) static std::array<std::byte, sizeof(GivenUpLeases)> room;
    static GivenUpLeases& instance = *new (room.data()) GivenUpLeases;
    return instance;
  }

  void Add(FrameLease& lease) {
    const std::lock_guard guard(lock_);
    lease.next_ = first_;
    first_ = &lease;
  }

  // The frame's way back begins, unless the driver was closed.
  bool BeginReturn(FrameLease& lease) {
    const std::lock_guard guard(lock_);
    if (!Unlink(first_, lease)) {
      return false;
    }
    lease.next_ = returning_;
    returning_ = &lease;
    return true;
  }

  void EndReturn(FrameLease& lease) {
    const std::lock_guard guard(lock_);
    Unlink(returning_, lease);
    returned_.notify_all();
  }

  void DropAllOf(const void* owner) {
    std::unique_lock guard(lock_);
    for (FrameLease** link = &first_; *link != nullptr;) {
      if ((*link)->owner_ == owner) {
        *link = (*link)->next_;
      } else {
        link = &(*link)->next_;
      }
    }
    returned_.wait(guard, [&] { return !IsReturning(owner); });
  }

 private:
  static bool Unlink(FrameLease*& first, FrameLease& lease) {
    for (FrameLease** link = &first; *link != nullptr; link = &(*link)->next_) {
      if (*link == &lease) {
        *link = lease.next_;
        return true;
      }
    }
    return false;
  }

  // On another thread; ReleaseFrame itself may close the driver.
  bool IsReturning(const void* owner) const {
    for (const FrameLease* lease = returning_; lease != nullptr; lease = lease->next_) {
      if (lease->owner_ == owner && lease != current) {
        return true;
      }
    }
    return false;
  }

  std::mutex lock_;
  std::condition_variable returned_;
  FrameLease* first_ = nullptr;      // under lock_: frames that the host has
  FrameLease* returning_ = nullptr;  // under lock_: frames in ReleaseFrame
};

void FrameLease::Begin() noexcept { current = this; }

void FrameLease::End() noexcept {
  current = nullptr;  // from here on the thread owes nothing, wherever ReleaseFrame leads
  if (frame_ != nullptr) {
    CallHost([this] { allocator_->ReleaseFrame(frame_); });
  }
}

void FrameLease::EndGivenUp() noexcept {
  if (!GivenUpLeases::Get().BeginReturn(*this)) {
    return;
  }
  if (frame_ != nullptr) {
    current = this;
    try {
      allocator_->ReleaseFrame(frame_);
    } catch (...) {
      // The host's own affair.
    }
    current = nullptr;
  }
  GivenUpLeases::Get().EndReturn(*this);
}

void FrameLease::KeepForGivenUpThread() noexcept {
  if (current != nullptr) {
    GivenUpLeases::Get().Add(*current);
    current = nullptr;
  }
}

void FrameLease::DropAllOf(const void* owner) noexcept { GivenUpLeases::Get().DropAllOf(owner); }

}  // namespace sarnevo
