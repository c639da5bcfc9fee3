#include "threads/COptex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/SharedMemory.h"
#include "support/Eventually.h"

namespace sarnevo {
namespace {

std::string UniqueName(const char* text) { return text + std::to_string(getpid()); }

// What @p body gives in a child process.
bool InChild(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0;
}

TEST(COptex, CountsEntriesInFourSharedWordsAndALeaveLetsAWaiterOfAnyProcessIn) {
  const std::string name = UniqueName("words");
  COptex lock(123, name.c_str(), false);
  const platform::SharedMemory memory(("Optex_MMF_" + name).c_str(), 16);
  auto* const words = static_cast<std::atomic<i32>*>(memory.Data());
  EXPECT_EQ(words[0], 123);
  lock.Enter();
  EXPECT_TRUE(lock.TryEnter());
  EXPECT_EQ(words[1], 2);
  EXPECT_EQ(words[2], gettid());
  EXPECT_EQ(words[3], 2);
  lock.Leave();
  const auto othersCanEnter = [&] { return InChild([&] { return COptex(123, name.c_str()).TryEnter(); }); };
  EXPECT_FALSE(othersCanEnter());

  constexpr i32 kGoOn = 7;
  std::thread other([&] {
    EXPECT_TRUE(InChild([&] {
      COptex same(0, name.c_str(), false);
      same.Enter();
      const bool goesOn = kolvex_test::Eventually([&] { return words[0] == kGoOn; });
      same.Leave();
      return goesOn;
    }));
  });
  EXPECT_TRUE(kolvex_test::Eventually([&] { return words[1] == 2; })) << "another process waits";
  lock.Leave();
  EXPECT_FALSE(lock.TryEnter()) << "no newcomer in front of a waiter";
  EXPECT_TRUE(kolvex_test::Eventually([&] { return words[2] != 0 && words[2] != gettid(); }));
  EXPECT_EQ(words[1], 1);
  lock.SetSpinCount(kGoOn);
  other.join();
  EXPECT_EQ(words[2], 0);
  EXPECT_TRUE(othersCanEnter());
}

// With a name or without one, and when the system refuses to share the name.
TEST(COptex, ExcludesTheThreadsOfAProcess) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  for (const std::string kind : {"", "contention", "refused"}) {
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, kind == "refused" ? &none : &limit), 0);
    COptex lock(0, kind.empty() ? nullptr : UniqueName(kind.c_str()).c_str());
    setrlimit(RLIMIT_NOFILE, &limit);
    constexpr int kRounds = 5'000;
    volatile int count = 0;  // unguarded but for the lock
    const auto work = [&] {
      for (int i = 0; i < kRounds; ++i) {
        const COptexGuard outer(lock);
        const COptexGuard inner(lock);
        const int before = count;
        if (i % 50 == 0) {
          std::this_thread::yield();  // an intruder would come now
        }
        count = before + 1;
      }
    };
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work)};
    for (auto& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(count, 3 * kRounds);
  }
}

TEST(COptex, OfANameTheFirst87BytesCountAndADeadOwnersLockIsFree) {
  const std::string stem = (UniqueName("long/") + std::string(87, 'n')).substr(0, 87);
  // Left as a crash leaves it: no destructor runs.
  EXPECT_TRUE(InChild([&] { return (new COptex(0, stem.c_str()))->TryEnter(); }));
  COptex lock(0, (stem + "z").c_str());
  EXPECT_TRUE(lock.TryEnter());
  for (const std::string& other : {stem, stem + std::string(5000, 'y'), stem.substr(0, 86)}) {
    EXPECT_EQ(InChild([&] { return COptex(0, other.c_str()).TryEnter(); }), other.size() < 87) << other.size();
  }
}

}  // namespace
}  // namespace sarnevo
