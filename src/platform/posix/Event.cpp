#include "platform/Event.h"

#include <array>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <new>

namespace sarnevo::platform {

namespace {

constexpr int kUnclaimed = -1;
constexpr int kGaveUp = -2;
constexpr Milliseconds kForEver{std::numeric_limits<std::int64_t>::max()};

// One thread in one wait. Whoever claims it first, an event or the time-out, decides how the wait ends, so
// that no two auto-reset events are spent on the same wait.
class Waiter {
 public:
  bool Claim(int by) {
    const std::lock_guard guard(lock_);
    if (claimed_ != kUnclaimed) {
      return false;
    }
    claimed_ = by;
    changed_.notify_one();
    return true;
  }

  // Gives the index of the event that ended the wait, or kGaveUp.
  int Await(Milliseconds timeout) {
    std::unique_lock guard(lock_);
    const auto claimed = [this] { return claimed_ != kUnclaimed; };
    if (timeout <= Milliseconds{0}) {
      // A look, as queue threads take at each round: not worth a call into the system.
      claimed_ = claimed() ? claimed_ : kGaveUp;
    } else if (timeout == kForEver) {
      changed_.wait(guard, claimed);
    } else if (!changed_.wait_until(guard, std::chrono::steady_clock::now() + timeout, claimed)) {
      claimed_ = kGaveUp;
    }
    return claimed_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int claimed_ = kUnclaimed;
};

// A waiter's place in one event's list. Lives on the waiting thread's stack.
struct Place {
  Waiter* waiter = nullptr;
  int index = 0;
  Place* next = nullptr;
  Place* previous = nullptr;
};

// Long enough for any wait, short enough that adding it to the clock can't overflow.
Milliseconds Bounded(Milliseconds timeout) {
  constexpr Milliseconds kLongest{std::int64_t{1} << 40};
  return timeout == kForEver ? timeout : std::min(timeout, kLongest);
}

}  // namespace

struct Event::Impl {
  Impl(bool initiallySet, bool manual) : set(initiallySet), manualReset(manual) {}

  // Claims the waiter if the event is set, and otherwise queues it. True when the wait is decided.
  bool ClaimOrQueue(Place& place) {
    const std::lock_guard guard(lock);
    if (set) {
      if (place.waiter->Claim(place.index) && !manualReset) {
        set = false;
      }
      return true;
    }
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

  std::mutex lock;
  bool set;
  const bool manualReset;
  Place* first = nullptr;  // longest waiting
  Place* last = nullptr;
};

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
    if (place->waiter->Claim(place->index) && !impl_->manualReset) {
      impl_->set = false;
      break;
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

WaitResult Event::Wait() noexcept { return Wait(kForEver); }

WaitResult Event::Wait(Milliseconds timeout) noexcept {
  if (!IsValid()) {
    return WaitResult::Failed;
  }
  Event* const self[] = {this};
  return WaitAny(self, timeout) == 0 ? WaitResult::Signalled : WaitResult::TimedOut;
}

int Event::WaitAny(std::span<Event* const> events, Milliseconds timeout) noexcept {
  if (events.empty() || events.size() > kMaxWait) {
    return -1;
  }
  for (const Event* event : events) {
    if (event == nullptr || !event->IsValid()) {
      return -1;
    }
  }

  Waiter waiter;
  std::array<Place, kMaxWait> places;
  std::size_t queued = 0;
  while (queued < events.size()) {
    Place& place = places[queued];
    place.waiter = &waiter;
    place.index = static_cast<int>(queued);
    if (events[queued]->impl_->ClaimOrQueue(place)) {
      break;
    }
    ++queued;
  }
  const int decided = waiter.Await(Bounded(timeout));
  for (std::size_t i = 0; i < queued; ++i) {
    events[i]->impl_->Unqueue(places[i]);
  }
  return decided == kGaveUp ? -1 : decided;
}

}  // namespace sarnevo::platform
