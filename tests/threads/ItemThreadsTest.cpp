#include "threads/CWorkItemThread.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "support/Eventually.h"
#include "support/HostLog.h"
#include "threads/CQueueThread.h"
#include "threads/HostCall.h"

namespace sarnevo::thread {
namespace {

using kolvex_test::Eventually;
using kolvex_test::HostLog;

constexpr std::chrono::seconds kItemLimit{10};

// Tells when it is done and when it is destroyed.
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
    goOn.Wait(kItemLimit);
  }
  bool Entered() { return inside.Wait(kItemLimit) == platform::WaitResult::Signalled; }
  platform::Event inside;
  platform::Event goOn;
};

class Worker : public CWorkItemThread {
 public:
  ~Worker() override { Stop(); }

 protected:
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

TEST(CWorkItemThread, MayBeDestroyedByTheHostInACallbackOutOfTheHandler) {
  HostLog words;
  platform::Event left;
  auto* const worker = new Worker;
  ASSERT_TRUE(worker->Start("destroyed"));
  worker->PostWorkItem(
      new Item(words, "a", [&] { CallHost([worker] { delete worker; }, [&left] { left.Set(); }); }), 0);
  EXPECT_EQ(left.Wait(kItemLimit), platform::WaitResult::Signalled);
  EXPECT_EQ(words.Text(), "a\n~a\n");
}

class Queue : public CQueueThread<Item> {
 public:
  ~Queue() override { Stop(); }

 protected:
  void ProcessItem(Item* item) override { item->Do(); }
};

// The rest is shown by the digital outputs.
TEST(CQueueThread, KeepsTheNewestItemsAndTakesNoneBehindAStop) {
  HostLog words;
  Queue queue;
  Hold hold;
  for (const char* const name : {"1", "2", "3"}) {
    EXPECT_TRUE(queue.Post(new Item(words, name, [] { throw 42; }), 2));
  }
  ASSERT_TRUE(queue.Start("queue"));
  const auto stopInside = [&] {
    hold();
    EXPECT_FALSE(queue.Stop()) << "on the thread itself";
  };
  queue.Post(new Item(words, "4", stopInside), 2);
  ASSERT_TRUE(hold.Entered());
  queue.Post(new Item(words, "waits"), 0);
  hold.goOn.Set();
  EXPECT_TRUE(queue.Stop());
  EXPECT_FALSE(queue.Post(new Item(words, "late"), 0));
  EXPECT_EQ(words.Text(), "~1\n~2\n3\n~3\n4\n~waits\n~4\n~late\n");
}

}  // namespace
}  // namespace sarnevo::thread
