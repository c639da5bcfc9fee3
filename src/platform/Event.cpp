#include "platform/Event.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "platform/Clock.h"
#include "platform/EventWord.h"

namespace sarnevo::platform {

namespace {

// Guards all events, so that a wait for several looks at them in one step. Held for moments.
std::mutex lock;

}  // namespace

// A waiting thread's place in one event's list. Lives on that thread's stack; without initial values, since most waits
// need one of an array of many.
struct Event::Place {
  EventWord* wake;
  Place* next;
  Place** link;  // what points here

  void Enter(Place*& list) noexcept {
    next = list;
    link = &list;
    list = this;
    if (next != nullptr) {
      next->link = &next;
    }
  }
  void Leave() noexcept {
    *link = next;
    if (next != nullptr) {
      next->link = link;
    }
  }
};

void Event::Set() noexcept {
  const std::lock_guard guard(lock);
  set_ = true;
  // All look again, and one of them takes it. Each needs the lock before it goes on, so that its place is still there.
  for (Place* place = waiting_; place != nullptr; place = place->next) {
    place->wake->Set();
  }
}

void Event::Reset() noexcept {
  const std::lock_guard guard(lock);
  set_ = false;
}

bool Event::Wait(Milliseconds timeout) noexcept {
  Event* const self[] = {this};
  return WaitAny(self, timeout) == 0;
}

int Event::WaitAny(std::span<Event* const> events, Milliseconds timeout) noexcept {
  if (events.empty() || events.size() > kMaxWait || std::ranges::find(events, nullptr) != events.end()) {
    return -1;
  }
  EventWord wake;
  std::array<Place, kMaxWait> places;
  const std::span entered(places.data(), events.size());
  const Nanoseconds end = TimeAfter(timeout);
  std::unique_lock guard(lock);
  for (std::size_t i = 0; i < events.size(); ++i) {
    entered[i].wake = &wake;
    entered[i].Enter(events[i]->waiting_);
  }
  int taken = TakeFirst(events);
  for (bool inTime = timeout > Milliseconds{0}; inTime && taken < 0; taken = TakeFirst(events)) {
    guard.unlock();
    inTime = wake.Wait(end);
    guard.lock();
  }
  for (Place& place : entered) {
    place.Leave();
  }
  return taken;
}

// Under the lock. The index of the first that is set, which is spent; -1 for none.
int Event::TakeFirst(std::span<Event* const> events) noexcept {
  const auto first = std::ranges::find_if(events, [](const Event* event) { return event->set_; });
  if (first == events.end()) {
    return -1;
  }
  (*first)->set_ = (*first)->manualReset_;
  return static_cast<int>(first - events.begin());
}

}  // namespace sarnevo::platform
