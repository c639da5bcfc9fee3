#include "platform/Event.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

namespace sarnevo::platform {
namespace {

TEST(Event, AutoResetIsSpentByOneWaitAndManualResetIsNot) {
  for (const bool manual : {false, true}) {
    Event event(true, manual);
    EXPECT_EQ(event.Wait(Milliseconds{0}), WaitResult::Signalled);
    EXPECT_EQ(event.Wait(Milliseconds{0}), manual ? WaitResult::Signalled : WaitResult::TimedOut);
    event.Set();
    event.Reset();
    EXPECT_EQ(event.Wait(Milliseconds{0}), WaitResult::TimedOut);
  }
}

TEST(Event, EachSetOfAnAutoResetEventWakesExactlyOneOfManyWaiters) {
  constexpr int kWaiters = 8;
  Event event;
  Event never;
  std::atomic<int> woken{0};
  Event progress;
  std::vector<std::thread> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.emplace_back([&] {
      const std::array<Event*, 2> both{&never, &event};
      EXPECT_EQ(Event::WaitAny(both, std::chrono::seconds{30}), 1);
      ++woken;
      progress.Set();
    });
  }
  for (int expected = 1; expected <= kWaiters; ++expected) {
    event.Set();
    while (woken < expected) {
      ASSERT_EQ(progress.Wait(std::chrono::seconds{10}), WaitResult::Signalled);
    }
    EXPECT_EQ(woken, expected);
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(event.Wait(Milliseconds{0}), WaitResult::TimedOut);
}

TEST(Event, WaitAnyGivesTheLowestSetIndexAndSpendsOnlyThatOne) {
  std::array<Event, 63> events;
  std::vector<Event*> pointers;
  for (Event& event : events) {
    pointers.push_back(&event);
  }
  EXPECT_EQ(Event::WaitAny(pointers, Milliseconds{0}), -1);
  events[62].Set();
  events[5].Set();
  EXPECT_EQ(Event::WaitAny(pointers, Milliseconds{0}), 5);
  EXPECT_EQ(Event::WaitAny(pointers, Milliseconds{0}), 62);
  EXPECT_EQ(Event::WaitAny(pointers, Milliseconds{0}), -1);

  Event surplus(true);
  pointers.push_back(&surplus);
  EXPECT_EQ(Event::WaitAny(pointers, Milliseconds{0}), -1);
  EXPECT_EQ(Event::WaitAny({}, Milliseconds{0}), -1);
  const std::array<Event*, 2> withNull{&surplus, nullptr};
  EXPECT_EQ(Event::WaitAny(withNull, Milliseconds{0}), -1);
  EXPECT_EQ(surplus.Wait(Milliseconds{0}), WaitResult::Signalled);
}

// Two waiters over overlapping sets, woken from two threads: each set is spent once, whatever the race.
TEST(Event, NoSetIsLostOrSpentTwiceUnderContention) {
  constexpr int kRounds = 2000;
  Event first;
  Event second;
  Event taken;
  std::atomic<int> spent{0};
  std::atomic<bool> end{false};
  const auto waiter = [&](std::array<Event*, 2> order) {
    while (!end) {
      if (Event::WaitAny(order, Milliseconds{5}) >= 0) {
        ++spent;
        taken.Set();
      }
    }
  };
  std::thread one(waiter, std::array<Event*, 2>{&first, &second});
  std::thread two(waiter, std::array<Event*, 2>{&second, &first});
  for (int round = 1; round <= kRounds; ++round) {
    (round % 2 == 0 ? first : second).Set();
    while (spent < round) {
      ASSERT_EQ(taken.Wait(std::chrono::seconds{10}), WaitResult::Signalled);
    }
  }
  end = true;
  one.join();
  two.join();
  EXPECT_EQ(spent, kRounds);
}

}  // namespace
}  // namespace sarnevo::platform
