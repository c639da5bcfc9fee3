#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/SharedMemory.h"
#include "support/Eventually.h"
#include "support/HostLog.h"
#include "threads/CBaseThread.h"
#include "threads/COptex.h"
#include "threads/CQueueThread.h"
#include "threads/CWorkItemThread.h"
#include "threads/HostCall.h"
#include "threads/StoppableThread.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;
using kolvex_test::HostLog;
using thread::CWorkItemThread;

constexpr u32 kLimit = 60'000;

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
  EXPECT_FALSE(events[63].Wait(0)) << "a look spends, too";
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

struct Thread : CBaseThread {
  explicit Thread(std::function<void(Thread&)> work) : body(std::move(work)) {}
  ~Thread() override { CBaseThread::Stop(kLimit); }
  using CBaseThread::IsAlive;
  using CBaseThread::stopEvent;
  void Run() override { body(*this); }
  const std::function<void(Thread&)> body;
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
    ASSERT_TRUE(Eventually([&] { return !thread.IsAlive(); }));
  }
  EXPECT_EQ(run, 4);
}

// Writes down when it is done and when it is destroyed.
struct Item : CWorkItemThread::IWorkItem {
  Item(HostLog& out, std::string text, std::function<void()> work = {})
      : words(out), name(std::move(text)), action(std::move(work)) {}
  ~Item() override { words.Add("~" + name); }
  void Do() const {
    words.Add(name);
    if (action) {
      action();
    }
  }
  HostLog& words;
  const std::string name;
  const std::function<void()> action;
};

// Holds a thread in an item until it is let go.
struct Hold {
  void operator()() {
    inside.Set();
    goOn.Wait(kLimit);
  }
  bool Entered() { return inside.Wait(kLimit); }
  AutoEvent inside;
  AutoEvent goOn;
};

struct Worker : CWorkItemThread {
  ~Worker() override { Stop(); }
  void HandleWorkItem(IWorkItem* item) override { static_cast<Item*>(item)->Do(); }
};

// The handler stops its own thread, while the owner stops it too, and the owner starts anew at once: the old
// thread must be out before the new one is in.
TEST(CWorkItemThread, KeepsTheOrderAndMayBeStoppedByItsHandlerAndStartedAgain) {
  // Time for a new thread to get in by mistake.
  constexpr std::chrono::milliseconds kTemptation{2};
  for (int round = 0; round < 50; ++round) {
    HostLog words;
    Worker worker;
    Hold hold;
    Item refused(words, "refused");
    const auto post = [&](const char* name, std::function<void()> work, u8 atFront = 0) {
      EXPECT_TRUE(worker.PostWorkItem(new Item(words, name, std::move(work)), atFront));
    };
    EXPECT_FALSE(worker.PostWorkItem(&refused, 0)) << "unstarted";
    ASSERT_TRUE(worker.Start("self"));
    EXPECT_FALSE(worker.Start("again"));
    EXPECT_FALSE(worker.PostWorkItem(nullptr, 0));
    post("1", [&] { hold(); });
    ASSERT_TRUE(hold.Entered());
    post("2", [] { throw 42; });
    post("3", [&] {
      hold();
      worker.Stop();
      EXPECT_FALSE(worker.Start("inside"));
      std::this_thread::sleep_for(kTemptation);
      words.Add("out");
    });
    post("front", {}, 1);
    hold.goOn.Set();
    ASSERT_TRUE(hold.Entered());
    post("waits", {});
    hold.goOn.Set();
    if (round % 2 == 0) {
      worker.Stop();
    }
    ASSERT_TRUE(Eventually([&] { return worker.Start("anew"); }));
    post("4", [&] { hold.inside.Set(); });
    ASSERT_TRUE(hold.Entered());
    worker.Stop();
    EXPECT_FALSE(worker.PostWorkItem(&refused, 0)) << "stopped";
    EXPECT_EQ(words.Text(), "1\n~1\nfront\n~front\n2\n~2\n3\n~waits\nout\n~3\n4\n~4\n");
  }
}

// How a forced end meets a thread in each place where one can be, and what that thread hears of it.
TEST(StoppableThread, IsLetGoInTheHostAndInterruptedAnywhereElse) {
  constexpr std::chrono::milliseconds kPatience{20};
  enum class Place { Host, HostForEver, Pause, BetweenCalls };
  for (const Place place : {Place::Host, Place::HostForEver, Place::Pause, Place::BetweenCalls}) {
    SCOPED_TRACE(static_cast<int>(place));
    // Of a thread that stays for ever; the leak check finds it and all that it holds by its stack.
    struct Scene {
      HostLog words;
      AutoEvent inside;
      AutoEvent goOn;
      AutoEvent gone;
    };
    auto* const scene = new Scene;
    const auto stay = [scene, place] {
      const bool stays = CallHost([&] {
        EXPECT_TRUE(CallHost([&] { scene->inside.Set(); })) << "inside one another";
        scene->goOn.Wait(place == Place::HostForEver ? kNoTimeout : kLimit);
        EXPECT_EQ(own_thread::IsLetGo(), place != Place::HostForEver);
        EXPECT_TRUE(CallHost([&] { scene->words.Add("host's own"); }));
      });
      scene->words.Add(stays ? "stays" : "gone");
    };
    const std::function<void()> bodies[] = {stay, stay,
                                            [scene] {
                                              scene->inside.Set();
                                              own_thread::Pause(std::chrono::hours{1});
                                            },
                                            [scene] {
                                              scene->inside.Set();
                                              while (CallHost([] {})) {
                                              }
                                            }};
    auto held = std::shared_ptr<void>(nullptr, [scene](void*) { scene->gone.Set(); });
    StoppableThread thread;
    ASSERT_TRUE(thread.Start("forced", [scene, held, body = bodies[static_cast<int>(place)]] {
      body();
      EXPECT_FALSE(CallHost([scene] { scene->words.Add("called"); }));
      CallHost([scene] { scene->words.Add("owed"); }, true);
      scene->words.Add(own_thread::IsLetGo() ? "let go" : "waited for");
    }));
    ASSERT_TRUE(scene->inside.Wait(kLimit));
    EXPECT_FALSE(thread.End(kPatience));
    EXPECT_FALSE(thread.IsAlive());
    scene->words.Add("ended");
    if (place == Place::HostForEver) {
      continue;
    }
    scene->goOn.Set();
    held.reset();
    EXPECT_TRUE(scene->gone.Wait(kLimit)) << "what the body owned stays";
    // A busy machine may take the thread off in the middle of such a short call, in which it is let go too.
    if (place != Place::BetweenCalls || scene->words.Count("let go") == 0) {
      EXPECT_EQ(scene->words.Text(),
                place == Place::Host ? "ended\nhost's own\ngone\nowed\nlet go\n" : "owed\nwaited for\nended\n");
    }
    delete scene;
  }
}

struct Queue : CQueueThread<Item> {
  using CQueueThread::CQueueThread;
  ~Queue() override { Stop(); }
  void ProcessItem(Item* item) override { item->Do(); }
};

// The rest is shown by the digital outputs.
TEST(CQueueThread, KeepsTheNewestItemsAndGoesOnAfterOneThatThrows) {
  HostLog words;
  Queue queue;
  for (const char* const name : {"1", "2", "3"}) {
    EXPECT_TRUE(queue.Post(new Item(words, name, [] { throw 42; }), 2));
  }
  ASSERT_TRUE(queue.Start("queue"));
  queue.Post(new Item(words, "4"), 2);
  EXPECT_TRUE(words.WaitFor("~4"));
  EXPECT_EQ(words.Text(), "~1\n~2\n3\n~3\n4\n~4\n");
  queue.RequestStop();
  EXPECT_FALSE(queue.Post(new Item(words, "5"), 2));
}

TEST(CQueueThread, ThatWasLetGoTakesNoItemOfItsSuccessor) {
  HostLog words;
  AutoEvent gone;
  Hold first;
  Hold second;
  Queue queue(20);
  auto held = std::shared_ptr<void>(nullptr, [&](void*) { gone.Set(); });
  queue.KeepAlive(held);
  ASSERT_TRUE(queue.Start("let go"));
  queue.Post(new Item(words, "1", [&] { CallHost([&] { first(); }); }), 0);
  ASSERT_TRUE(first.Entered());
  EXPECT_TRUE(queue.Stop());
  held.reset();
  queue.KeepAlive({});
  ASSERT_TRUE(queue.Start("successor"));
  queue.Post(new Item(words, "2", [&] { second(); }), 0);
  ASSERT_TRUE(second.Entered());
  queue.Post(new Item(words, "3"), 0);
  first.goOn.Set();
  EXPECT_TRUE(gone.Wait(kLimit));
  EXPECT_EQ(words.Text(), "1\n2\n~1\n");
  second.goOn.Set();
  EXPECT_TRUE(words.WaitFor("~3"));
}

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
      const bool goesOn = Eventually([&] { return words[0] == kGoOn; });
      same.Leave();
      return goesOn;
    }));
  });
  EXPECT_TRUE(Eventually([&] { return words[1] == 2; })) << "another process waits";
  lock.Leave();
  EXPECT_FALSE(lock.TryEnter()) << "no newcomer before a waiter";
  EXPECT_TRUE(Eventually([&] { return words[2] != 0 && words[2] != gettid(); }));
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
