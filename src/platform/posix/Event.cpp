#include "platform/Event.h"

#include <algorithm>
#include <array>
#include <limits>
#include <mutex>
#include <new>

#include "platform/posix/Futex.h"

namespace sarnevo::platform {

namespace {

constexpr std::uint32_t kUnclaimed = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kGaveUp = kUnclaimed - 1;
// As good as for ever, and short enough that adding it to the clock can't overflow: 35 years.
constexpr Milliseconds kLongest{std::int64_t{1} << 40};

// One thread in one wait. Whoever claims it first, an event or the time-out, decides how the wait ends, so
// that no two auto-reset events are spent on the same wait. It sleeps on that very word: a condition variable
// would cost each wait that times out a second call into the system.
class Waiter {
 public:
  bool Claim(std::uint32_t by) noexcept {
    std::uint32_t none = kUnclaimed;
    return claimed_.compare_exchange_strong(none, by, std::memory_order_acq_rel);
  }

  // After Claim, when the claimer isn't the waiting thread itself.
  void Wake() noexcept { posix::FutexWakeOne(claimed_, posix::FutexScope::Process); }

  // Gives the index of the event that ended the wait, or kGaveUp.
  std::uint32_t Await(Milliseconds timeout) noexcept {
    const auto deadline = std::chrono::steady_clock::now() + std::min(timeout, kLongest);
    if (timeout <= Milliseconds{0}) {
      Claim(kGaveUp);
    }
    while (claimed_.load(std::memory_order_acquire) == kUnclaimed) {
      posix::FutexWait(claimed_, kUnclaimed, posix::FutexScope::Process, &deadline);
      if (std::chrono::steady_clock::now() >= deadline) {
        Claim(kGaveUp);
      }
    }
    return claimed_.load(std::memory_order_acquire);
  }

 private:
  posix::FutexWord claimed_{kUnclaimed};
};

// A waiter's place in one event's list. Lives on the waiting thread's stack; without initial values, since
// most waits need one of an array of many.
struct Place {
  Waiter* waiter;
  std::uint32_t index;
  Place* next;
  Place* previous;
};

}  // namespace

struct Event::Impl {
  Impl(bool initiallySet, bool manual) : set(initiallySet), manualReset(manual) {}

  // Spends the event if it is set.
  bool Take() noexcept {
    const std::lock_guard guard(lock);
    const bool taken = set;
    set = set && manualReset;
    return taken;
  }

  // Claims the waiter if the event is set, and otherwise queues it. True when the wait is decided.
  bool ClaimOrQueue(Place& place) {
    const std::lock_guard guard(lock);
    if (set) {
      if (place.waiter->Claim(place.index) && !manualReset) {
        set = false;
      }
      return true;
    }
    place.next = nullptr;
    place.previous = last;
    (last != nullptr ? last->next : first) = &place;
    last = &place;
    return false;
  }

  void Unqueue(Place& place) {
    const std::lock_guard guard(lock);
    (place.previous != nullptr ? place.previous->next : first) = place.next;
    (place.next != nullptr ? place.next->previous : last) = place.previous;
  }

  static std::uint32_t WaitAny(std::span<Event* const> events, Place* places, Milliseconds timeout) noexcept;

  std::mutex lock;
  bool set;
  const bool manualReset;
  Place* first = nullptr;  // longest waiting
  Place* last = nullptr;
};

// @param places  as many as there are events
std::uint32_t Event::Impl::WaitAny(std::span<Event* const> events, Place* places,
                                   Milliseconds timeout) noexcept {
  Waiter waiter;
  std::uint32_t queued = 0;
  while (queued < events.size()) {
    Place& place = places[queued];
    place.waiter = &waiter;
    place.index = queued;
    if (events[queued]->impl_->ClaimOrQueue(place)) {
      break;
    }
    ++queued;
  }
  const std::uint32_t decided = waiter.Await(timeout);
  for (std::uint32_t i = 0; i < queued; ++i) {
    events[i]->impl_->Unqueue(places[i]);
  }
  return decided;
}

Event::Event(bool initiallySet, bool manualReset) noexcept
    : impl_(new (std::nothrow) Impl(initiallySet, manualReset)) {}

Event::~Event() = default;

bool Event::Set() noexcept {
  if (!IsValid()) {
    return false;
  }
  const std::lock_guard guard(impl_->lock);
  impl_->set = true;
  for (Place* place = impl_->first; place != nullptr; place = place->next) {
    if (place->waiter->Claim(place->index)) {
      // Its thread takes this lock before it goes on, so that the waiter is still there.
      place->waiter->Wake();
      if (!impl_->manualReset) {
        impl_->set = false;
        break;
      }
    }
  }
  return true;
}

bool Event::Reset() noexcept {
  if (!IsValid()) {
    return false;
  }
  const std::lock_guard guard(impl_->lock);
  impl_->set = false;
  return true;
}

WaitResult Event::Wait(Milliseconds timeout) noexcept {
  if (!IsValid()) {
    return WaitResult::Failed;
  }
  if (timeout <= Milliseconds{0}) {
    // A look, as queue threads take at each round.
    return impl_->Take() ? WaitResult::Signalled : WaitResult::TimedOut;
  }
  Event* const self[] = {this};
  Place place;
  return Impl::WaitAny(self, &place, timeout) == 0 ? WaitResult::Signalled : WaitResult::TimedOut;
}

int Event::WaitAny(std::span<Event* const> events, Milliseconds timeout) noexcept {
  const auto isInvalid = [](const Event* event) { return event == nullptr || !event->IsValid(); };
  if (events.empty() || events.size() > kMaxWait || std::any_of(events.begin(), events.end(), isInvalid)) {
    return -1;
  }
  std::array<Place, kMaxWait> places;
  const std::uint32_t decided = Impl::WaitAny(events, places.data(), timeout);
  return decided == kGaveUp ? -1 : static_cast<int>(decided);
}

}  // namespace sarnevo::platform
