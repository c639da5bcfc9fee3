#include "threads/CQueueThread.h"

#include <gtest/gtest.h>

#include "QueueItem.h"

namespace sarnevo {
namespace {

using kolvex_test::Hold;
using kolvex_test::Item;
using kolvex_test::Words;

class Queue : public CQueueThread<Item> {
 public:
  ~Queue() override { Stop(); }

 protected:
  void ProcessItem(Item* item) override { item->Do(); }
};

TEST(CQueueThread, KeepsTheNewestItemsOfALimitedQueue) {
  Words words;
  Queue queue;
  for (const auto& [name, most] : {std::pair("1", 3U), {"2", 3U}, {"3", 3U}, {"4", 3U}, {"5", 1U}, {"6", 0U}}) {
    EXPECT_TRUE(queue.Post(new Item(words, name), most));
    EXPECT_EQ(words.Text(), *name < '4' ? "" : *name == '4' ? "~1" : "~1 ~2 ~3 ~4");
  }
  queue.Purge();
  EXPECT_EQ(words.Text(), "~1 ~2 ~3 ~4 ~5 ~6");
}

TEST(CQueueThread, FinishesTheItemInProgressAndNoOther) {
  Words words;
  Queue queue;
  Hold hold;
  ASSERT_TRUE(queue.Start("queue"));
  EXPECT_FALSE(queue.Start("again"));
  queue.Post(new Item(words, "bad", [] { throw 42; }), 0);
  queue.Post(new Item(words, "stops",
                      [&] {
                        hold();
                        EXPECT_FALSE(queue.Stop()) << "on the thread itself";
                        EXPECT_FALSE(queue.Post(new Item(words, "late"), 0));
                      }),
             0);
  ASSERT_TRUE(hold.Entered());
  queue.Post(new Item(words, "waits"), 0);
  hold.goOn.Set();
  EXPECT_TRUE(queue.Stop());
  EXPECT_EQ(words.Text(), "bad ~bad stops ~waits ~late ~stops");
  EXPECT_FALSE(queue.Post(new Item(words, "after"), 0));
  ASSERT_TRUE(queue.Start("anew"));
  queue.Post(new Item(words, "new", [&] { hold.inside.Set(); }), 0);
  ASSERT_TRUE(hold.Entered());
  EXPECT_TRUE(queue.Stop());
  EXPECT_EQ(words.Text(), "bad ~bad stops ~waits ~late ~stops ~after new ~new");
}

}  // namespace
}  // namespace sarnevo
