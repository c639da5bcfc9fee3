#include "threads/CQueueThread.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>

namespace sarnevo {
namespace {

constexpr u32 kLimit = 10'000;

class Words {
 public:
  void Add(const std::string& word) {
    const std::lock_guard guard(lock_);
    text_ += (text_.empty() ? "" : " ") + word;
  }
  std::string Text() const {
    const std::lock_guard guard(lock_);
    return text_;
  }

 private:
  mutable std::mutex lock_;
  std::string text_;
};

struct Item {
  Words& words;
  std::string name;
  std::function<void()> action;
  ~Item() { words.Add("~" + name); }
};

class Queue : public CQueueThread<Item> {
 public:
  ~Queue() override { Stop(); }

 protected:
  void ProcessItem(Item* item) override {
    item->words.Add(item->name);
    if (item->action) {
      item->action();
    }
  }
};

TEST(CQueueThread, KeepsTheNewestItemsOfALimitedQueue) {
  Words words;
  Queue queue;
  for (const char* const name : {"1", "2", "3", "4"}) {
    EXPECT_TRUE(queue.Post(new Item{words, name, {}}, 3));
  }
  EXPECT_EQ(words.Text(), "~1");
  EXPECT_TRUE(queue.Post(new Item{words, "5", {}}, 1));
  EXPECT_EQ(words.Text(), "~1 ~2 ~3 ~4");
  EXPECT_TRUE(queue.Post(new Item{words, "6", {}}, 0));
  queue.Purge();
  EXPECT_EQ(words.Text(), "~1 ~2 ~3 ~4 ~5 ~6");
}

TEST(CQueueThread, FinishesTheItemInProgressAndNoOther) {
  Words words;
  Queue queue;
  CEvent inside(0, 0, nullptr);
  CEvent done(0, 0, nullptr);
  ASSERT_TRUE(queue.Start("queue"));
  EXPECT_FALSE(queue.Start("again"));
  queue.Post(new Item{words, "bad", [] { throw 42; }}, 0);
  queue.Post(new Item{words, "stops",
                      [&] {
                        inside.Set();
                        done.Wait(kLimit);
                        EXPECT_TRUE(queue.IsOwnThread());
                        EXPECT_FALSE(queue.Stop()) << "on the thread itself";
                        EXPECT_FALSE(queue.Post(new Item{words, "late", {}}, 0));
                      }},
             0);
  ASSERT_TRUE(inside.Wait(kLimit));
  queue.Post(new Item{words, "waits", {}}, 0);
  done.Set();
  EXPECT_TRUE(queue.Stop());
  EXPECT_EQ(words.Text(), "bad ~bad stops ~waits ~late ~stops");
  EXPECT_FALSE(queue.Post(new Item{words, "after", {}}, 0));
  ASSERT_TRUE(queue.Start("anew"));
  queue.Post(new Item{words, "new", [&] { done.Set(); }}, 0);
  ASSERT_TRUE(done.Wait(kLimit));
  EXPECT_TRUE(queue.Stop());
  EXPECT_EQ(words.Text(), "bad ~bad stops ~waits ~late ~stops ~after new ~new");
}

}  // namespace
}  // namespace sarnevo
