#include "threads/CWorkItemThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "threads/HostCall.h"
#include "support/Eventually.h"

namespace sarnevo::thread {
namespace {

using kolvex_test::Eventually;

constexpr platform::Milliseconds kLimit{10'000};

// Everything that happens to items, one word each.
class Transcript {
 public:
  void Write(const std::string& word) {
    const std::lock_guard guard(lock_);
    text_ += (text_.empty() ? "" : " ") + word;
  }
  std::string Text() {
    const std::lock_guard guard(lock_);
    return text_;
  }

 private:
  std::mutex lock_;
  std::string text_;
};

struct Item : CWorkItemThread::IWorkItem {
  Item(Transcript& out, std::string text, std::function<void()> work = {})
      : transcript(out), name(std::move(text)), action(std::move(work)) {}
  ~Item() override { transcript.Write("~" + name); }
  Transcript& transcript;
  const std::string name;
  const std::function<void()> action;
};

class Worker : public CWorkItemThread {
 public:
  ~Worker() override { Stop(); }

 protected:
  void HandleWorkItem(IWorkItem* item) override {
    auto* const own = static_cast<Item*>(item);
    own->transcript.Write(own->name);
    if (own->action) {
      own->action();
    }
  }
};

// Holds the worker in an item until it is let go.
struct Hold {
  platform::Event inside;
  platform::Event goOn;
  std::function<void()> Action() {
    return [this] {
      inside.Set();
      goOn.Wait(kLimit);
    };
  }
};

TEST(CWorkItemThread, TakesItemsOnlyWhileItRuns) {
  Transcript transcript;
  Worker worker;
  auto* const item = new Item(transcript, "a");
  EXPECT_FALSE(worker.PostWorkItem(item, 0)) << "unstarted";
  worker.Stop();
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(worker.Start("work"));
    EXPECT_FALSE(worker.Start("again"));
    EXPECT_FALSE(worker.PostWorkItem(nullptr, 0));
    platform::Event done;
    ASSERT_TRUE(worker.PostWorkItem(new Item(transcript, "b", [&] { done.Set(); }), 0));
    EXPECT_EQ(done.Wait(kLimit), platform::WaitResult::Signalled);
    worker.Stop();
    EXPECT_FALSE(worker.PostWorkItem(item, 0)) << "stopped";
  }
  EXPECT_EQ(transcript.Text(), "b ~b b ~b");
  delete item;
}

TEST(CWorkItemThread, KeepsTheOrderButForThoseInFront) {
  Transcript transcript;
  Worker worker;
  Hold hold;
  ASSERT_TRUE(worker.Start("order"));
  worker.PostWorkItem(new Item(transcript, "held", hold.Action()), 0);
  ASSERT_EQ(hold.inside.Wait(kLimit), platform::WaitResult::Signalled);
  platform::Event done;
  worker.PostWorkItem(new Item(transcript, "1", [] { throw 42; }), 0);
  worker.PostWorkItem(new Item(transcript, "2", [&] { done.Set(); }), 0);
  worker.PostWorkItem(new Item(transcript, "front", [] {}), 1);
  hold.goOn.Set();
  ASSERT_EQ(done.Wait(kLimit), platform::WaitResult::Signalled);
  worker.Stop();
  EXPECT_EQ(transcript.Text(), "held ~held front ~front 1 ~1 2 ~2");
}

TEST(CWorkItemThread, AStopWaitsForTheItemInProgressAndThrowsTheOthersAway) {
  Transcript transcript;
  Worker worker;
  Hold hold;
  ASSERT_TRUE(worker.Start("stop"));
  worker.PostWorkItem(new Item(transcript, "held", hold.Action()), 0);
  ASSERT_EQ(hold.inside.Wait(kLimit), platform::WaitResult::Signalled);
  worker.PostWorkItem(new Item(transcript, "1"), 0);
  worker.PostWorkItem(new Item(transcript, "2"), 0);
  std::thread stopper([&] {
    worker.Stop();
    transcript.Write("stopped");
  });
  EXPECT_TRUE(Eventually([&] { return transcript.Text() == "held ~1 ~2"; })) << transcript.Text();
  hold.goOn.Set();
  stopper.join();
  EXPECT_EQ(transcript.Text(), "held ~1 ~2 ~held stopped");
}

// The handler stops its own thread, while the owner stops it too, and the owner starts anew at once: the old
// thread must be out before the new one is in.
TEST(CWorkItemThread, MayBeStoppedByItsHandlerAndStartedAgain) {
  // Time for a new thread to get in by mistake.
  constexpr std::chrono::milliseconds kTemptation{2};
  for (int round = 0; round < 50; ++round) {
    Transcript transcript;
    Worker worker;
    Hold hold;
    ASSERT_TRUE(worker.Start("self"));
    std::atomic<bool> restarted{true};
    worker.PostWorkItem(new Item(transcript, "a",
                                 [&] {
                                   hold.Action()();
                                   worker.Stop();
                                   restarted = worker.Start("inside");
                                   std::this_thread::sleep_for(kTemptation);
                                   transcript.Write("out");
                                 }),
                        0);
    ASSERT_EQ(hold.inside.Wait(kLimit), platform::WaitResult::Signalled);
    worker.PostWorkItem(new Item(transcript, "b"), 0);
    hold.goOn.Set();
    if (round % 2 == 0) {
      worker.Stop();
    }
    ASSERT_TRUE(Eventually([&] { return worker.Start("anew"); }));
    platform::Event done;
    ASSERT_TRUE(worker.PostWorkItem(new Item(transcript, "c", [&] { done.Set(); }), 0));
    ASSERT_EQ(done.Wait(kLimit), platform::WaitResult::Signalled);
    worker.Stop();
    EXPECT_FALSE(restarted);
    EXPECT_EQ(transcript.Text(), "a ~b out ~a c ~c");
  }
}

TEST(CWorkItemThread, MayBeDestroyedByTheHostInACallbackOutOfTheHandler) {
  Transcript transcript;
  platform::Event left;
  auto* const worker = new Worker;
  ASSERT_TRUE(worker->Start("destroyed"));
  worker->PostWorkItem(
      new Item(transcript, "a", [&] { CallHost([worker] { delete worker; }, [&left] { left.Set(); }); }), 0);
  EXPECT_EQ(left.Wait(kLimit), platform::WaitResult::Signalled);
  EXPECT_EQ(transcript.Text(), "a ~a");
}

}  // namespace
}  // namespace sarnevo::thread
