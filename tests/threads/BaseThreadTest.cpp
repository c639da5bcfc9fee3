#include "threads/CBaseThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Clock.h"
#include "support/Eventually.h"
#include "threads/CTickThread.h"
#include "threads/Timeout.h"

namespace sarnevo {
namespace {

constexpr u32 kLimit = 10'000;

CEvent AutoReset() { return {0, 0, nullptr}; }

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

TEST(CEvent, WaitsForUpTo63EventsAndNamesAndSpendsTheFirst) {
  std::vector<std::unique_ptr<CEvent>> events;
  std::vector<CEvent*> pointers;
  for (int i = 0; i < 64; ++i) {
    pointers.push_back(events.emplace_back(std::make_unique<CEvent>(i == 63, 0, nullptr)).get());
  }
  CManualEvent manual;
  pointers[7] = &manual;
  const auto first = [&](u32 count) { return CEvent::WaitForAny(pointers.data(), count, 0); };
  EXPECT_EQ(first(63), -1);
  EXPECT_EQ(first(64), -1);
  EXPECT_TRUE(events[63]->Wait(0)) << "unspent";
  events[62]->Set();
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

TEST(CBaseThread, StartsAgainAfterAStopAReturnAndAnException) {
  CEvent running = AutoReset();
  CEvent look = AutoReset();
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
    if (round <= 2) {
      ASSERT_TRUE(kolvex_test::Eventually([&] { return !thread.IsAlive(); }));
      continue;
    }
    ASSERT_TRUE(running.Wait(kLimit));
    EXPECT_TRUE(thread.stopEvent.Wait(0));
    EXPECT_FALSE(thread.Start("second")) << "already running";
    look.Set();
    ASSERT_TRUE(running.Wait(kLimit));
    EXPECT_TRUE(thread.Stop(kLimit));
    EXPECT_FALSE(thread.IsAlive());
    EXPECT_TRUE(thread.Stop(kLimit)) << "twice";
  }
  EXPECT_EQ(run, 4);
}

class Ticker : public CTickThread {
 public:
  using CTickThread::CTickThread;
  ~Ticker() override { CTickThread::Stop(kLimit); }
  std::vector<u64> times;  // the thread only while it runs
  CEvent third{0, 0, nullptr};

 protected:
  void Tick() override {
    times.push_back(platform::MonotonicMilliseconds());
    if (times.size() == 3) {
      third.Set();
      stopEvent.Wait(kLimit);
      EXPECT_FALSE(Stop(kLimit)) << "on the thread itself";
    }
  }
};

TEST(CTickThread, TicksAtOnceOrAfterAnIntervalAndAStopLetsTheTickFinish) {
  for (const u8 first : {u8{1}, u8{0}}) {
    constexpr u32 kInterval = 60;
    Ticker ticker(kInterval);
    const u64 begin = platform::MonotonicMilliseconds();
    ASSERT_TRUE(ticker.Start("ticks", first));
    ASSERT_TRUE(ticker.third.Wait(kLimit));
    EXPECT_TRUE(ticker.Stop(kLimit));
    ASSERT_EQ(ticker.times.size(), 3u);
    EXPECT_GE(ticker.times[0] - begin, first == 0 ? kInterval : 0);
    EXPECT_GE(ticker.times[2] - ticker.times[0], 2 * kInterval);
  }
}

}  // namespace
}  // namespace sarnevo
