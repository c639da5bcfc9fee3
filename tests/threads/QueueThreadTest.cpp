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

TEST(CQueueThread, WorksOffTheNewestItemsAndFinishesOnlyTheOneInProgressAtAStop) {
  Words words;
  Queue queue;
  Hold hold;
  for (const char* const name : {"1", "2", "3"}) {
    EXPECT_TRUE(queue.Post(new Item(words, name, [] { throw 42; }), 2));
  }
  EXPECT_EQ(words.Text(), "~1");
  ASSERT_TRUE(queue.Start("queue"));
  queue.Post(new Item(words, "4",
                      [&] {
                        hold();
                        EXPECT_FALSE(queue.Stop()) << "on the thread itself";
                        EXPECT_FALSE(queue.Post(new Item(words, "late"), 0));
                      }),
             2);
  ASSERT_TRUE(hold.Entered());
  EXPECT_FALSE(queue.Start("again"));
  queue.Post(new Item(words, "waits"), 0);
  hold.goOn.Set();
  EXPECT_TRUE(queue.Stop());
  const std::string sofar = "~1 ~2 3 ~3 4 ~waits ~late ~4";
  EXPECT_EQ(words.Text(), sofar);
  EXPECT_FALSE(queue.Post(new Item(words, "after"), 0));
  ASSERT_TRUE(queue.Start("anew"));
  queue.Post(new Item(words, "new", [&] { hold.inside.Set(); }), 0);
  ASSERT_TRUE(hold.Entered());
  EXPECT_TRUE(queue.Stop());
  EXPECT_EQ(words.Text(), sofar + " ~after new ~new");
}

}  // namespace
}  // namespace sarnevo
