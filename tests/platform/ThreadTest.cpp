#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <string>

#include <pthread.h>

#include "threads/HostCall.h"

namespace sarnevo::platform {
namespace {

using namespace std::chrono_literals;

TEST(Thread, CarriesItsNameBlocksEverySignalAndReportsItsLife) {
  Event go;
  Thread thread;
  EXPECT_FALSE(thread.HasHandle());
  EXPECT_EQ(thread.Wait(0ms), WaitResult::Failed);
  std::string name;
  bool blocked = true;
  ThreadId inside = 0;
  ASSERT_TRUE(thread.Start("a name that is longer than the system takes", [&] {
    std::array<char, 16> own{};
    pthread_getname_np(pthread_self(), own.data(), own.size());
    name = own.data();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE, SIGUSR1, SIGALRM}) {
      blocked = blocked && sigismember(&mask, number) == 1;
    }
    inside = CurrentThreadId();
    EXPECT_EQ(thread.Wait(0ms), WaitResult::Failed) << "for itself";
    EXPECT_FALSE(current_thread::Abandon()) << "not in the host";
    EXPECT_FALSE(CallHost([] { throw 42; }));
    EXPECT_TRUE(CallHost([] {}));
    go.Wait();
    throw std::runtime_error("ends the thread quietly");
  }));
  EXPECT_TRUE(thread.IsAlive());
  EXPECT_FALSE(thread.IsCurrent());
  EXPECT_EQ(thread.Wait(20ms), WaitResult::TimedOut);
  EXPECT_FALSE(thread.Abandon(20ms)) << "not in the host";
  go.Set();
  EXPECT_TRUE(thread.Abandon(10s)) << "ends in order meanwhile";
  EXPECT_EQ(thread.Wait(), WaitResult::Signalled);
  EXPECT_FALSE(thread.IsAlive());
  EXPECT_TRUE(thread.HasHandle());
  EXPECT_EQ(thread.Id(), inside);
  EXPECT_NE(inside, CurrentThreadId());
  EXPECT_EQ(name, "a name that is ");
  EXPECT_TRUE(blocked);
}

TEST(HostCall, CatchesWhatTheHostThrowsOnAThreadOfItsOwn) {
  EXPECT_FALSE(current_thread::IsOurs());
  EXPECT_FALSE(CallHost([] { throw 42; }));
  EXPECT_TRUE(CallHost([] {}));
}

}  // namespace
}  // namespace sarnevo::platform
