#include "threads/COptex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Event.h"
#include "platform/SharedMemory.h"
#include "support/Eventually.h"

namespace sarnevo {
namespace {

std::string UniqueName(const char* text) { return text + std::to_string(getpid()); }

// Another thread's attempt; a success is given back at once.
bool OthersCanEnter(COptex& lock) {
  bool entered = false;
  std::thread([&] {
    entered = lock.TryEnter();
    if (entered) {
      lock.Leave();
    }
  }).join();
  return entered;
}

// What @p body gives in a child process, beside @p meanwhile in this one.
bool InChild(
    const std::function<bool()>& body, const std::function<void()>& meanwhile = [] {}) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body() ? 0 : 1);
  }
  meanwhile();
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0;
}

TEST(COptex, CountsEntriesInFourSharedWordsAndEachLeaveLetsOneWaiterIn) {
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
  EXPECT_FALSE(OthersCanEnter(lock));

  constexpr int kWaiters = 3;
  std::atomic<int> entered{0};
  platform::Event inside;
  platform::Event goOn;
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      const COptexGuard guard(lock);
      ++entered;
      inside.Set();
      goOn.Wait();
    });
  }
  ASSERT_TRUE(kolvex_test::Eventually([&] { return words[1] == 1 + kWaiters; })) << words[1];
  EXPECT_EQ(entered, 0);
  lock.Leave();
  for (int turn = 1; turn <= kWaiters; ++turn) {
    EXPECT_FALSE(lock.TryEnter()) << "no newcomer in front of a waiter";
    ASSERT_EQ(inside.Wait(std::chrono::seconds{10}), platform::WaitResult::Signalled);
    EXPECT_EQ(entered, turn);
    EXPECT_EQ(words[1], 1 + kWaiters - turn);
    goOn.Set();
  }
  for (auto& waiter : waiters) {
    waiter.join();
  }
  EXPECT_EQ(words[2], 0);
  EXPECT_TRUE(OthersCanEnter(lock));
}

TEST(COptex, ExcludesThreadsOfOneProcessAndOfTwo) {
  struct Page {
    std::atomic<int> ready{0};
    volatile int count = 0;  // unguarded but for the lock
  };
  void* const memory = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  Page& page = *new (memory) Page;
  constexpr int kRounds = 20'000;
  const auto work = [&page](COptex& lock, int workers) {
    ++page.ready;
    while (page.ready < workers) {
      std::this_thread::yield();
    }
    for (int i = 0; i < kRounds; ++i) {
      const COptexGuard outer(lock);
      const COptexGuard inner(lock);
      const int before = page.count;
      if (i % 50 == 0) {
        std::this_thread::yield();  // an intruder would come now
      }
      page.count = before + 1;
    }
    return true;
  };
  COptex lock(0, nullptr);
  std::thread other([&] { work(lock, 2); });
  work(lock, 2);
  other.join();
  EXPECT_EQ(page.count, 2 * kRounds);
  const std::string name = UniqueName("contention");
  const auto process = [&] {
    COptex shared(0, name.c_str());
    return work(shared, 4);
  };
  EXPECT_TRUE(InChild(process, process));
  EXPECT_EQ(page.count, 4 * kRounds);
  munmap(memory, sizeof(Page));
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

TEST(COptex, StillExcludesWhenTheSystemRefusesTheName) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  rlimit none = limit;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  COptex lock(0, "refused");
  setrlimit(RLIMIT_NOFILE, &limit);
  lock.Enter();
  EXPECT_FALSE(OthersCanEnter(lock));
  lock.Leave();
  EXPECT_TRUE(OthersCanEnter(lock));
}

}  // namespace
}  // namespace sarnevo
