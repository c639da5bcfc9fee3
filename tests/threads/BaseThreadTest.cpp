#include "threads/CBaseThread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Clock.h"
#include "threads/CTickThread.h"
#include "threads/HostCall.h"
#include "threads/Timeout.h"
#include "support/Eventually.h"
#include "support/StopSlack.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;

constexpr u32 kLimit = 10'000;
using kolvex_test::kStopSlack;

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

TEST(CEvent, WaitsForUpTo63EventsAndNamesTheFirst) {
  std::vector<std::unique_ptr<CEvent>> events;
  std::vector<CEvent*> pointers;
  for (int i = 0; i < 64; ++i) {
    pointers.push_back(events.emplace_back(std::make_unique<CEvent>(0, 0, nullptr)).get());
  }
  CManualEvent manual;
  pointers[7] = &manual;
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 63, 0), -1);
  events[62]->Set();
  manual.Set();
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 63, kNoTimeout), 7);
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 63, 0), 7);
  EXPECT_TRUE(manual.Reset());
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 64, kNoTimeout), -1);
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 63, 0), 62);
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 63, 0), -1);
  EXPECT_EQ(CEvent::WaitForAny(pointers.data(), 0, kNoTimeout), -1);
  EXPECT_EQ(CEvent::WaitForAny(nullptr, 1, kNoTimeout), -1);
  CEvent set(1, 0, nullptr);
  EXPECT_TRUE(set.Wait(0));
  EXPECT_FALSE(set.Wait(0));
}

TEST(CBaseThread, GoesThroughItsStates) {
  CEvent running = AutoReset();
  Thread thread([&](Thread& self) {
    running.Set();
    self.stopEvent.Wait(kNoTimeout);
  });
  EXPECT_TRUE(thread.Stop(kLimit)) << "never started";
  EXPECT_TRUE(thread.stopEvent.Wait(0)) << "set all the same";
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(thread.Start("states"));
    EXPECT_TRUE(running.Wait(kLimit));
    EXPECT_FALSE(thread.stopEvent.Wait(0));
    EXPECT_FALSE(thread.Start("second")) << "already running";
    EXPECT_FALSE(running.Wait(0));
    EXPECT_TRUE(thread.Stop(kLimit));
    EXPECT_FALSE(thread.IsAlive());
    EXPECT_TRUE(thread.Stop(kLimit)) << "twice";
  }
}

TEST(CBaseThread, AFailedStartTakesBackAStopThatWasPending) {
  CEvent look = AutoReset();
  CEvent looked = AutoReset();
  std::atomic<bool> stopSeen{false};
  std::atomic<bool> stopSelf{true};
  Thread thread([&](Thread& self) {
    stopSelf = self.Stop(kLimit);
    looked.Set();
    look.Wait(kLimit);
    stopSeen = self.stopEvent.Wait(0);
    looked.Set();
    self.stopEvent.Wait(kNoTimeout);
  });
  ASSERT_TRUE(thread.Start("pending"));
  ASSERT_TRUE(looked.Wait(kLimit));
  EXPECT_FALSE(stopSelf) << "a stop on the thread itself";
  EXPECT_TRUE(thread.stopEvent.Wait(0));
  EXPECT_FALSE(thread.Start("again"));
  look.Set();
  ASSERT_TRUE(looked.Wait(kLimit));
  EXPECT_FALSE(stopSeen);
  EXPECT_TRUE(thread.Stop(kLimit));
}

TEST(CBaseThread, StartsAgainAfterItsBodyHasEndedByReturnOrException) {
  std::atomic<int> runs{0};
  Thread thread([&](Thread&) {
    if (++runs == 2) {
      throw 42;
    }
  });
  for (int expected = 1; expected <= 3; ++expected) {
    ASSERT_TRUE(thread.Start("finished"));
    EXPECT_TRUE(Eventually([&] { return !thread.IsAlive(); }));
    EXPECT_EQ(runs, expected);
    EXPECT_FALSE(thread.IsOwnThread());
  }
}

// A callback of the host that doesn't return, at the hands of stops with and without a wait. The object is
// gone when the host returns at last; the sanitizers watch.
TEST(CBaseThread, GivesAThreadUpInTimeThatTheHostKeeps) {
  for (const u32 timeout : {0u, 150u}) {
    CEvent inside = AutoReset();
    CEvent left = AutoReset();
    CManualEvent release;
    std::atomic<bool> cameBack{false};
    auto thread = std::make_unique<Thread>([&](Thread&) {
      CallHost(
          [&] {
            inside.Set();
            release.Wait(kNoTimeout);
          },
          [&left] { left.Set(); });
      cameBack = true;
    });
    std::atomic<int> interrupts{0};
    thread->SetInterrupt([&] { ++interrupts; });
    ASSERT_TRUE(thread->Start("kept"));
    ASSERT_TRUE(inside.Wait(kLimit));
    const u64 begin = platform::MonotonicMilliseconds();
    EXPECT_TRUE(thread->Stop(timeout));
    const u64 took = platform::MonotonicMilliseconds() - begin;
    EXPECT_GE(took, timeout);
    EXPECT_LE(took, timeout + kStopSlack);
    EXPECT_GE(interrupts, 1);
    thread.reset();
    release.Set();
    EXPECT_TRUE(left.Wait(kLimit));
    EXPECT_FALSE(cameBack);
  }
}

// The camera says nothing: the thread hangs in a call that only an interrupt ends. The first interrupt comes
// too early, as when the thread is on its way into the call.
TEST(CBaseThread, InterruptsAThreadInItsCallAndLetsItEndInOrder) {
  CEvent call = AutoReset();
  std::atomic<bool> unwound{false};
  std::atomic<int> interrupts{0};
  Thread thread([&](Thread&) {
    call.Wait(kNoTimeout);
    unwound = true;
  });
  thread.SetInterrupt([&] {
    if (++interrupts == 2) {
      call.Set();
    }
  });
  ASSERT_TRUE(thread.Start("call"));
  const u64 begin = platform::MonotonicMilliseconds();
  EXPECT_TRUE(thread.Stop(20));
  EXPECT_LE(platform::MonotonicMilliseconds() - begin, 20 + kStopSlack);
  EXPECT_TRUE(unwound);
  EXPECT_EQ(interrupts, 2);
}

TEST(CBaseThread, MayBeDestroyedByTheHostInACallbackOnTheThreadItself) {
  CEvent left = AutoReset();
  std::atomic<bool> cameBack{false};
  Thread* thread = nullptr;
  CEvent go = AutoReset();
  thread = new Thread([&](Thread&) {
    go.Wait(kLimit);
    CallHost([&] { delete thread; }, [&left] { left.Set(); });
    cameBack = true;
  });
  ASSERT_TRUE(thread->Start("self"));
  go.Set();
  EXPECT_TRUE(left.Wait(kLimit));
  EXPECT_FALSE(cameBack);
}

class Ticker : public CTickThread {
 public:
  explicit Ticker(u32 interval) : CTickThread(interval) {}
  ~Ticker() override { CTickThread::Stop(kLimit); }

  std::vector<u64> times;  // the thread only while it runs
  CEvent ticked{0, 0, nullptr};
  CEvent goOn{0, 0, nullptr};
  std::atomic<bool> hold{false};
  std::atomic<bool> stopSelf{false};

 protected:
  void Tick() override {
    times.push_back(platform::MonotonicMilliseconds());
    ticked.Set();
    if (hold) {
      goOn.Wait(kLimit);
    }
    if (stopSelf) {
      EXPECT_FALSE(Stop(kLimit));
    }
  }
};

TEST(CTickThread, TicksAtOnceOrAfterAnInterval) {
  for (const u8 first : {u8{1}, u8{0}}) {
    constexpr u32 kInterval = 60;
    Ticker ticker(kInterval);
    const u64 begin = platform::MonotonicMilliseconds();
    ASSERT_TRUE(ticker.Start("ticks", first));
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(ticker.ticked.Wait(kLimit));
    }
    EXPECT_TRUE(ticker.Stop(kLimit));
    ASSERT_GE(ticker.times.size(), 3u);
    if (first == 0) {
      EXPECT_GE(ticker.times[0] - begin, kInterval);
    }
    EXPECT_GE(ticker.times[2] - ticker.times[0], 2 * kInterval);
  }
  Ticker never(kNoTimeout);
  ASSERT_TRUE(never.Start("first of two", 1));
  EXPECT_TRUE(never.ticked.Wait(kLimit)) << "at once, whatever the interval";
  EXPECT_TRUE(never.Stop(kLimit));
  ASSERT_TRUE(never.Start("none", 0));
  EXPECT_TRUE(never.Stop(kLimit));
  EXPECT_EQ(never.times.size(), 1u);
}

TEST(CTickThread, AStopLetsTheTickFinishAndIsTheLast) {
  Ticker ticker(0);
  ticker.hold = true;
  ticker.stopSelf = true;
  ASSERT_TRUE(ticker.Start("finishes", 1));
  ASSERT_TRUE(ticker.ticked.Wait(kLimit));
  ticker.goOn.Set();
  EXPECT_TRUE(ticker.Stop(kLimit));
  EXPECT_EQ(ticker.times.size(), 1u);
}

}  // namespace
}  // namespace sarnevo
