#include "threads/CBaseThread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "support/Eventually.h"
#include "threads/CTickThread.h"
#include "threads/Timeout.h"

namespace sarnevo {
namespace {

constexpr u32 kLimit = 10'000;

struct AutoEvent : CEvent {
  AutoEvent() noexcept : CEvent(0, 0, nullptr) {}
};

TEST(CEvent, WaitsForUpTo63EventsAndNamesAndSpendsTheFirst) {
  AutoEvent events[64];
  std::vector<CEvent*> pointers;
  for (CEvent& event : events) {
    pointers.push_back(&event);
  }
  CManualEvent manual;
  pointers[7] = &manual;
  const auto first = [&](u32 count) { return CEvent::WaitForAny(pointers.data(), count, 0); };
  EXPECT_EQ(first(63), -1);
  events[63].Set();
  EXPECT_EQ(first(64), -1);
  EXPECT_TRUE(events[63].Wait(0)) << "unspent";
  events[62].Set();
  manual.Set();
  EXPECT_EQ(first(63), 7);
  EXPECT_EQ(first(63), 7) << "a manual event stays set";
  EXPECT_TRUE(manual.Reset());
  EXPECT_EQ(first(63), 62);
  EXPECT_EQ(first(63), -1);
  EXPECT_EQ(first(0), -1);
  EXPECT_EQ(CEvent::WaitForAny(nullptr, 1, kNoTimeout), -1);
  pointers[1] = nullptr;
  EXPECT_EQ(first(2), -1);
}

// Waiters over both events in different orders: each set is spent by exactly one, whatever the race.
TEST(CEvent, NoSetIsLostOrSpentTwiceUnderContention) {
  constexpr int kRounds = 2000;
  std::array<AutoEvent, 2> events;
  AutoEvent taken;
  std::atomic<int> spent{0};
  std::atomic<bool> end{false};
  std::vector<std::thread> waiters;
  for (std::size_t i = 0; i < 6; ++i) {
    waiters.emplace_back([&, i] {
      CEvent* order[] = {&events[i % 2], &events[1 - i % 2]};
      while (!end) {
        if (CEvent::WaitForAny(order, 2, 20) >= 0) {
          ++spent;
          taken.Set();
        }
      }
    });
  }
  for (int round = 1; round <= kRounds && !HasFailure(); ++round) {
    events[static_cast<std::size_t>(round) % 2].Set();
    while (spent < round && !HasFailure()) {
      EXPECT_TRUE(taken.Wait(kLimit));
    }
  }
  end = true;
  for (auto& waiter : waiters) {
    waiter.join();
  }
  EXPECT_EQ(spent, kRounds);
}

class Thread : public CBaseThread {
 public:
  explicit Thread(std::function<void(Thread&)> body) : body_(std::move(body)) {}
  ~Thread() override { CBaseThread::Stop(kLimit); }
  using CBaseThread::IsAlive;
  using CBaseThread::stopEvent;

 protected:
  void Run() override { body_(*this); }

 private:
  std::function<void(Thread&)> body_;
};

TEST(CBaseThread, StartsAgainAfterAStopAReturnAndAnException) {
  AutoEvent running;
  AutoEvent look;
  int run = 0;
  Thread thread([&](Thread& self) {
    EXPECT_FALSE(self.stopEvent.Wait(0)) << "left over";
    if (++run == 1) {
      throw 42;
    }
    if (run > 2) {
      EXPECT_FALSE(self.Stop(kLimit)) << "on the thread itself";
      running.Set();
      look.Wait(kLimit);
      EXPECT_FALSE(self.stopEvent.Wait(0)) << "the failed start has taken it back";
      running.Set();
      self.stopEvent.Wait(kNoTimeout);
    }
  });
  EXPECT_TRUE(thread.Stop(kLimit)) << "never started";
  EXPECT_TRUE(thread.stopEvent.Wait(0)) << "set all the same";
  for (int round = 1; round <= 4; ++round) {
    ASSERT_TRUE(thread.Start("states"));
    if (round > 2) {
      ASSERT_TRUE(running.Wait(kLimit));
      EXPECT_FALSE(thread.Start("second")) << "already running";
      look.Set();
      ASSERT_TRUE(running.Wait(kLimit));
      EXPECT_TRUE(thread.Stop(kLimit));
    }
    ASSERT_TRUE(kolvex_test::Eventually([&] { return !thread.IsAlive(); }));
  }
  EXPECT_EQ(run, 4);
}

class Ticker : public CTickThread {
 public:
  using CTickThread::CTickThread;
  std::vector<u64> times;  // the thread only while it runs
  AutoEvent third;

 protected:
  void Tick() override {
    times.push_back(platform::MonotonicMilliseconds());
    if (times.size() == 3) {
      third.Set();
      stopEvent.Wait(kLimit);
    }
  }
};

TEST(CTickThread, TicksAtOnceOrAfterAnInterval) {
  for (const u8 first : {u8{1}, u8{0}}) {
    constexpr u32 kInterval = 60;
    Ticker ticker(kInterval);
    const u64 begin = platform::MonotonicMilliseconds();
    ASSERT_TRUE(ticker.Start("ticks", first));
    EXPECT_TRUE(ticker.third.Wait(kLimit));
    EXPECT_TRUE(ticker.Stop(kLimit));
    ASSERT_EQ(ticker.times.size(), 3u);
    EXPECT_GE(ticker.times[0] - begin, first == 0 ? kInterval : 0);
    EXPECT_GE(ticker.times[2] - ticker.times[0], 2 * kInterval);
  }
}

}  // namespace
}  // namespace sarnevo
