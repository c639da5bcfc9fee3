#include "platform/Event.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

namespace sarnevo::platform {
namespace {

// Waiters over overlapping sets in different orders: each set is spent by exactly one, whatever the race.
TEST(Event, NoSetIsLostOrSpentTwiceUnderContention) {
  constexpr int kRounds = 2000;
  Event first;
  Event second;
  Event taken;
  std::atomic<int> spent{0};
  std::atomic<bool> end{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 6; ++i) {
    waiters.emplace_back([&, i] {
      const std::array<Event*, 2> order{i % 2 == 0 ? &first : &second, i % 2 == 0 ? &second : &first};
      while (!end) {
        if (Event::WaitAny(order, Milliseconds{20}) >= 0) {
          ++spent;
          taken.Set();
        }
      }
    });
  }
  for (int round = 1; round <= kRounds && !HasFailure(); ++round) {
    (round % 2 == 0 ? first : second).Set();
    while (spent < round && !HasFailure()) {
      EXPECT_EQ(taken.Wait(std::chrono::seconds{10}), WaitResult::Signalled);
    }
  }
  end = true;
  for (auto& waiter : waiters) {
    waiter.join();
  }
  EXPECT_EQ(spent, kRounds);
}

}  // namespace
}  // namespace sarnevo::platform
