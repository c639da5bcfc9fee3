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
#include "threads/SpinAttempts.h"
#include "support/Eventually.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;

constexpr platform::Milliseconds kLimit{10'000};

std::string UniqueName(const char* text) { return text + std::to_string(getpid()); }

// Another thread's attempt; it gives the lock back at once.
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

// The four words that all processes with a lock of this name read.
class SharedWords {
 public:
  explicit SharedWords(const std::string& name) : memory_(("Optex_MMF_" + name).c_str(), 16) {}
  i32 operator[](std::size_t index) const {
    return static_cast<std::atomic<i32>*>(memory_.Data())[index].load();
  }
  void AwaitLockCount(i32 count) const {
    ASSERT_TRUE(Eventually([&] { return (*this)[1] == count; })) << (*this)[1];
  }

 private:
  platform::SharedMemory memory_;
};

// The exit code of a child process that runs @p body.
int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(COptex, SpinsOnSeveralProcessorsOnly) {
  struct {
    bool single;
    u32 given;
    int attempts;
  } const cases[] = {{false, 4000, 4001}, {false, 0, 1}, {true, 4000, 1}};
  for (const auto& c : cases) {
    COptex lock(c.given, nullptr, c.single);
    int attempts = 0;
    EXPECT_FALSE(SpinAttempts(lock.SpinCount(), [&] {
      ++attempts;
      return false;
    }));
    EXPECT_EQ(attempts, c.attempts) << c.single << ' ' << c.given;
  }
  int attempts = 0;
  EXPECT_TRUE(SpinAttempts(4000, [&] { return ++attempts == 7; }));
  EXPECT_EQ(attempts, 7);
}

TEST(COptex, CountsItsOwnersEntriesInFourSharedWords) {
  const std::string name = UniqueName("words");
  COptex lock(123, name.c_str(), false);
  const SharedWords words(name);
  EXPECT_EQ(words[0], 123);
  lock.Enter();
  EXPECT_TRUE(lock.TryEnter());
  for (const i32 entries : {2, 1, 0}) {
    EXPECT_EQ(words[1], entries);
    EXPECT_EQ(words[2], entries > 0 ? gettid() : 0);
    EXPECT_EQ(words[3], entries);
    EXPECT_EQ(OthersCanEnter(lock), entries == 0);
    if (entries > 0) {
      lock.Leave();
    }
  }
}

TEST(COptex, EachLeaveLetsOneWaiterInAndNoNewcomerInFrontOfIt) {
  const std::string name = UniqueName("turns");
  COptex lock(0, name.c_str());
  const SharedWords words(name);
  constexpr int kWaiters = 3;
  std::atomic<int> entered{0};
  platform::Event inside;
  platform::Event goOn;
  lock.Enter();
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      const COptexGuard guard(lock);
      ++entered;
      inside.Set();
      goOn.Wait();
    });
  }
  words.AwaitLockCount(1 + kWaiters);
  EXPECT_EQ(entered, 0);
  lock.Leave();
  for (int turn = 1; turn <= kWaiters; ++turn) {
    EXPECT_FALSE(lock.TryEnter());
    ASSERT_EQ(inside.Wait(kLimit), platform::WaitResult::Signalled);
    EXPECT_EQ(entered, turn);
    EXPECT_EQ(words[1], 1 + kWaiters - turn);
    goOn.Set();
  }
  for (auto& waiter : waiters) {
    waiter.join();
  }
  EXPECT_TRUE(lock.TryEnter());
  lock.Leave();
}

TEST(COptex, ExcludesUnderContention) {
  const std::string name = UniqueName("contention");
  for (const char* const shared : {static_cast<const char*>(nullptr), name.c_str()}) {
    for (const u32 spin : {0u, COptex::kSpinCount}) {
      COptex lock(spin, shared, false);
      constexpr int kThreads = 4;
      constexpr int kRounds = 5000;
      int count = 0;  // unguarded but for the lock
      std::vector<std::thread> threads;
      for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
          for (int round = 0; round < kRounds; ++round) {
            const COptexGuard outer(lock);
            const COptexGuard inner(lock);
            ++count;
          }
        });
      }
      for (auto& thread : threads) {
        thread.join();
      }
      EXPECT_EQ(count, kThreads * kRounds);
    }
  }
}

TEST(COptex, ANamedLockExcludesThreadsOfTwoProcesses) {
  struct Page {
    std::atomic<int> ready{0};
    volatile int count = 0;
  };
  void* const memory = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const page = new (memory) Page;
  const std::string name = UniqueName("processes");
  constexpr int kRounds = 20'000;
  const auto work = [&] {
    COptex lock(0, name.c_str());
    ++page->ready;
    while (page->ready < 2) {
      std::this_thread::yield();
    }
    for (int i = 0; i < kRounds; ++i) {
      const COptexGuard guard(lock);
      const int before = page->count;
      if (i % 50 == 0) {
        std::this_thread::yield();  // an intruder would come now
      }
      page->count = before + 1;
    }
    return 0;
  };
  const pid_t child = fork();
  if (child == 0) {
    _exit(work());
  }
  work();
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(page->count, 2 * kRounds);
  munmap(memory, sizeof(Page));
}

TEST(COptex, ALockThatADeadProcessHeldIsFreeForTheNextUsers) {
  const std::string name = UniqueName("dead");
  EXPECT_EQ(InChild([&] {
              // Left as a crash leaves it: no destructor runs.
              (new COptex(0, name.c_str()))->Enter();
              return 0;
            }),
            0);
  COptex lock(0, name.c_str());
  EXPECT_TRUE(lock.TryEnter());
}

TEST(COptex, OfANameTheFirst87BytesCount) {
  const std::string base = UniqueName("long/") + std::string(87, 'n');
  const std::string stem = base.substr(0, 87);
  struct {
    std::string second;
    bool same;
  } const cases[] = {
      {stem, true}, {stem + "x", true}, {stem + std::string(5000, 'y'), true}, {stem.substr(1), false}};
  for (const auto& c : cases) {
    COptex lock(0, (stem + "z").c_str());
    lock.Enter();
    EXPECT_EQ(InChild([&] { return COptex(0, c.second.c_str()).TryEnter() ? 1 : 0; }), c.same ? 0 : 1)
        << c.second.size();
    lock.Leave();
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
