#include "threads/CWorkItemThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "QueueItem.h"
#include "support/Eventually.h"
#include "threads/HostCall.h"

namespace sarnevo::thread {
namespace {

using kolvex_test::Eventually;
using kolvex_test::Hold;
using kolvex_test::Item;
using kolvex_test::kItemLimit;
using kolvex_test::Words;

class Worker : public CWorkItemThread {
 public:
  ~Worker() override { Stop(); }

 protected:
  void HandleWorkItem(IWorkItem* item) override { static_cast<Item*>(item)->Do(); }
};

TEST(CWorkItemThread, KeepsTheOrderButForThoseInFrontAndThrowsAwayAtAStopWhatWaits) {
  Words words;
  Worker worker;
  Hold hold;
  Item refused(words, "refused");
  EXPECT_FALSE(worker.PostWorkItem(&refused, 0)) << "unstarted";
  worker.Stop();
  ASSERT_TRUE(worker.Start("order"));
  EXPECT_FALSE(worker.Start("again"));
  EXPECT_FALSE(worker.PostWorkItem(nullptr, 0));
  worker.PostWorkItem(new Item(words, "1", [&] { hold(); }), 0);
  ASSERT_TRUE(hold.Entered());
  worker.PostWorkItem(new Item(words, "2", [] { throw 42; }), 0);
  worker.PostWorkItem(new Item(words, "3", [&] { hold(); }), 0);
  worker.PostWorkItem(new Item(words, "front"), 1);
  hold.goOn.Set();
  ASSERT_TRUE(hold.Entered());
  worker.PostWorkItem(new Item(words, "waits"), 0);
  std::thread stopper([&] {
    worker.Stop();
    words.Add("stopped");
  });
  EXPECT_TRUE(Eventually([&] { return words.Text() == "1 ~1 front ~front 2 ~2 3 ~waits"; })) << words.Text();
  EXPECT_FALSE(worker.PostWorkItem(&refused, 0)) << "stopped";
  hold.goOn.Set();
  stopper.join();
  EXPECT_EQ(words.Text(), "1 ~1 front ~front 2 ~2 3 ~waits ~3 stopped");
}

// The handler stops its own thread, while the owner stops it too, and the owner starts anew at once: the old
// thread must be out before the new one is in.
TEST(CWorkItemThread, MayBeStoppedByItsHandlerAndStartedAgain) {
  // Time for a new thread to get in by mistake.
  constexpr std::chrono::milliseconds kTemptation{2};
  for (int round = 0; round < 50; ++round) {
    Words words;
    Worker worker;
    Hold hold;
    ASSERT_TRUE(worker.Start("self"));
    worker.PostWorkItem(new Item(words, "a",
                                 [&] {
                                   hold();
                                   worker.Stop();
                                   EXPECT_FALSE(worker.Start("inside"));
                                   std::this_thread::sleep_for(kTemptation);
                                   words.Add("out");
                                 }),
                        0);
    ASSERT_TRUE(hold.Entered());
    worker.PostWorkItem(new Item(words, "b"), 0);
    hold.goOn.Set();
    if (round % 2 == 0) {
      worker.Stop();
    }
    ASSERT_TRUE(Eventually([&] { return worker.Start("anew"); }));
    ASSERT_TRUE(worker.PostWorkItem(new Item(words, "c", [&] { hold.inside.Set(); }), 0));
    ASSERT_TRUE(hold.Entered());
    worker.Stop();
    EXPECT_EQ(words.Text(), "a ~b out ~a c ~c");
  }
}

TEST(CWorkItemThread, MayBeDestroyedByTheHostInACallbackOutOfTheHandler) {
  Words words;
  platform::Event left;
  auto* const worker = new Worker;
  ASSERT_TRUE(worker->Start("destroyed"));
  worker->PostWorkItem(
      new Item(words, "a", [&] { CallHost([worker] { delete worker; }, [&left] { left.Set(); }); }), 0);
  EXPECT_EQ(left.Wait(kItemLimit), platform::WaitResult::Signalled);
  EXPECT_EQ(words.Text(), "a ~a");
}

}  // namespace
}  // namespace sarnevo::thread
