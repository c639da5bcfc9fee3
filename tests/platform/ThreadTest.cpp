#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>

#include <pthread.h>

#include "threads/HostCall.h"

namespace sarnevo::platform {
namespace {

using namespace std::chrono_literals;

TEST(Thread, CarriesItsNameAndBlocksEverySignal) {
  std::string name;
  bool blocked = true;
  Thread thread;
  ASSERT_TRUE(thread.Start("a name that is longer than the system takes", [&] {
    std::array<char, 16> own{};
    pthread_getname_np(pthread_self(), own.data(), own.size());
    name = own.data();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE, SIGUSR1, SIGALRM}) {
      blocked = blocked && sigismember(&mask, number) == 1;
    }
  }));
  EXPECT_EQ(thread.Wait(10s), WaitResult::Signalled);
  EXPECT_EQ(name, "a name that is ");
  EXPECT_TRUE(blocked);
}

TEST(Thread, ReportsItsLife) {
  Event go;
  Thread thread;
  EXPECT_FALSE(thread.HasHandle());
  EXPECT_EQ(thread.Wait(0ms), WaitResult::Failed);
  ThreadId inside = 0;
  WaitResult onItself = WaitResult::Signalled;
  ASSERT_TRUE(thread.Start("life", [&] {
    inside = CurrentThreadId();
    onItself = thread.Wait(0ms);
    go.Wait();
    throw std::runtime_error("ends the thread quietly");
  }));
  EXPECT_TRUE(thread.IsAlive());
  EXPECT_FALSE(thread.IsCurrent());
  EXPECT_EQ(thread.Wait(20ms), WaitResult::TimedOut);
  go.Set();
  EXPECT_EQ(thread.Wait(), WaitResult::Signalled);
  EXPECT_FALSE(thread.IsAlive());
  EXPECT_TRUE(thread.HasHandle());
  EXPECT_EQ(thread.Id(), inside);
  EXPECT_NE(inside, CurrentThreadId());
  EXPECT_EQ(onItself, WaitResult::Failed);
}

TEST(Thread, IsNotGivenUpOutsideOfTheHost) {
  Event go;
  Thread thread;
  ASSERT_TRUE(thread.Start("ours", [&] { go.Wait(); }));
  EXPECT_FALSE(thread.Abandon(20ms));
  go.Set();
  EXPECT_TRUE(thread.Abandon(10s));
  EXPECT_FALSE(thread.IsAlive());
}

// The object that the thread works on is freed while the thread stands in the host. When the host returns,
// nothing of the object may be touched: the sanitizers watch, and the flags tell.
TEST(Thread, AbandonedInTheHostItTouchesNothingWhenTheHostReturns) {
  struct Object {
    int touched = 0;
  };
  auto object = std::make_unique<Object>();
  auto* const raw = object.get();
  Event inside;
  Event goOn;
  Event left;
  std::atomic<bool> cameBack{false};
  Thread thread;
  ASSERT_TRUE(thread.Start("stuck", [&, raw] {
    CallHost(
        [&] {
          inside.Set();
          goOn.Wait();
        },
        [&left] { left.Set(); });
    ++raw->touched;
    cameBack = true;
  }));
  ASSERT_EQ(inside.Wait(10s), WaitResult::Signalled);
  EXPECT_EQ(thread.Wait(20ms), WaitResult::TimedOut);
  EXPECT_TRUE(thread.Abandon(0ms));
  EXPECT_FALSE(thread.IsAlive());
  EXPECT_EQ(thread.Wait(), WaitResult::Signalled);
  thread.Release();
  object.reset();
  goOn.Set();
  EXPECT_EQ(left.Wait(10s), WaitResult::Signalled);
  EXPECT_FALSE(cameBack);
}

TEST(Thread, GivenUpFromInsideItsOwnCallbackItEndsBehindThatCallback) {
  Event left;
  std::atomic<int> steps{0};
  Thread thread;
  ASSERT_TRUE(thread.Start("self", [&] {
    EXPECT_FALSE(current_thread::Abandon());  // not in the host yet
    CallHost(
        [&] {
          EXPECT_TRUE(current_thread::Abandon());
          CallHost([&] { ++steps; });  // a nested call to the host doesn't end it
          ++steps;
        },
        [&left] { left.Set(); });
    steps = 100;
  }));
  EXPECT_EQ(left.Wait(10s), WaitResult::Signalled);
  EXPECT_EQ(thread.Wait(), WaitResult::Signalled);
  EXPECT_EQ(steps, 2);
}

TEST(HostCall, CatchesWhatTheHostThrowsOnAnyThread) {
  EXPECT_FALSE(CallHost([] { throw 42; }));
  EXPECT_TRUE(CallHost([] {}));
  EXPECT_FALSE(current_thread::IsOurs());
  bool caught = false;
  Thread thread;
  ASSERT_TRUE(thread.Start("throws", [&] { caught = !CallHost([] { throw std::runtime_error("host"); }); }));
  thread.Wait();
  EXPECT_TRUE(caught);
}

}  // namespace
}  // namespace sarnevo::platform
