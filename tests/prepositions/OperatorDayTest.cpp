#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

// A camera with a head's memory. With fixed slots it stores at the slot last gone to, whichever it is told.
class Head : public FakeCamera {
 public:
  explicit Head(bool fixed) : fixed_(fixed) {}
  bool StorePreset(u32 slot) override {
    return FakeCamera::StorePreset(slot) && (stored.insert(fixed_ ? lastGone : slot), true);
  }
  bool GotoPreset(u32 slot, u32 option) override {
    const bool gone = FakeCamera::GotoPreset(slot, option);
    lastGone = gone ? slot : lastGone;
    return gone;
  }
  bool DeletePreset(u32 slot) override {
    const bool deleted = FakeCamera::DeletePreset(slot);
    std::erase_if(stored, [&](u32 candidate) { return deleted && (fixed_ || candidate == slot); });
    return deleted;
  }
  std::set<u32> stored;
  u32 lastGone = 0;

 private:
  const bool fixed_;
};

// What list, file and camera must hold, told without the code under test.
struct Model {
  const bool fixed;
  std::map<u32, std::wstring> file{};  // by slot; the camera has positions for just these
  std::map<u32, std::wstring> names{};
  std::vector<u32> order{};
  i32 current = -1;

  void Restart() {
    names = file;
    current = fixed ? 0 : -1;
    for (u32 slot = 0; fixed && slot < 64; ++slot) {
      names.try_emplace(slot, L"empty p" + std::to_wstring(slot) + L" ");
      order.resize(slot + 1, slot);
    }
  }
  i32 Add(const std::wstring& name, bool refused) {
    u32 slot = 0;
    if (current >= 0) {
      slot = order[static_cast<std::size_t>(current)];
      names[slot] = name;
      if (fixed && refused) {
        return -18;
      }
    } else {
      while (names.contains(slot)) {
        ++slot;
      }
      if (order.size() == 32 || refused) {
        return order.size() == 32 ? -26 : -18;
      }
      names[slot] = name;
      order.push_back(slot);
      current = static_cast<i32>(order.size()) - 1;
    }
    file[slot] = name;
    return 1;
  }
  bool Select(u32 slot, bool refused) {
    const auto place = std::find(order.begin(), order.end(), slot) - order.begin();
    if (!names.contains(slot) || (refused && place != current)) {
      return false;
    }
    current = static_cast<i32>(place);
    return true;
  }
  bool Delete(u32 slot, bool refused) {
    if (fixed) {
      if (!refused) {
        file.clear();
        Restart();
      }
      return !refused;
    }
    if (!names.contains(slot)) {
      return false;
    }
    current = -1;
    if (!refused) {
      names.erase(slot);
      file.erase(slot);
      std::erase(order, slot);
    }
    return true;
  }
};

TEST(OperatorsDay, LeavesListCameraAndFileInStep) {
  for (const bool fixed : {false, true}) {
    for (u32 seed = 0; seed < 10; ++seed) {
      SCOPED_TRACE((fixed ? "fixed slots, day " : "normal, day ") + std::to_string(seed));
      const TempFolder folder;
      std::mt19937 random(seed);
      Head head(fixed);
      Model model{fixed};
      std::optional<List> list;
      for (u32 step = 0; step < 200; ++step) {
        SCOPED_TRACE(step);
        if (step % 25 == 0) {
          list.reset();
          list.emplace(&head, OpenReader(folder.Path()), fixed);
          model.Restart();
          head.lastGone = 0;  // where a list with fixed slots takes the head to be
        }
        head.refuses = random() % 8 == 0;
        const u32 slot = static_cast<u32>(random() % (fixed ? 64 : 32));
        const std::wstring known = model.names.contains(slot) ? model.names[slot] : L"none";
        const u32 choice = static_cast<u32>(random() % 40);
        if (choice < 12) {
          list->ClearCurrentPreposition();
          model.current = fixed ? model.current : -1;
        } else if (choice < 22) {
          EXPECT_EQ(list->SelectPreposition(known, 0), model.Select(slot, head.refuses));
        } else if (choice < (fixed ? 23 : 25)) {
          EXPECT_EQ(list->DeletePreposition(known), model.Delete(slot, head.refuses));
          head.lastGone = fixed ? model.order[static_cast<std::size_t>(model.current)] : 0;
        } else {
          const std::wstring name = L"n" + std::to_wstring(step);
          EXPECT_EQ(list->AddPreposition(name), model.Add(name, head.refuses));
        }
        std::wstring name, current;
        ASSERT_EQ(list->GetPrepositionCount(), model.order.size());
        for (u32 i = 0; i < model.order.size(); ++i) {
          ASSERT_TRUE(list->GetPrepositionName(i, name));
          ASSERT_EQ(name, model.names[model.order[i]]) << i;
        }
        ASSERT_EQ(list->GetCurrentPreposition(current), model.current >= 0);
        ASSERT_EQ(current,
                  model.current < 0 ? L"" : model.names[model.order[static_cast<std::size_t>(model.current)]]);
        std::set<u32> slots;
        for (const auto& entry : model.file) {
          slots.insert(entry.first);
        }
        ASSERT_EQ(head.stored, slots);
      }
    }
  }
}

// Four threads on one list, two lists on one file: no name is lost, and no two have one slot.
TEST(OperatorsDay, ManyThreadsLeaveListAndFileInStep) {
  const TempFolder folder;
  Head heads[] = {Head(false), Head(false)};
  auto reader = OpenReader(folder.Path());
  List lists[] = {{&heads[0], reader, false, 0}, {&heads[1], reader, false, 1}};
  std::vector<std::thread> threads;
  std::atomic<int> statuses{0};
  for (u32 thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      std::mt19937 random(thread);
      for (int i = 0; i < 100; ++i) {
        List& list = lists[random() % 2];
        const std::wstring name = std::to_wstring(thread) + L"-" + std::to_wstring(random() % 12);
        switch (random() % 4) {
          case 0:
            statuses += list.AddPreposition(name) == 1;
            break;
          case 1:
            list.DeletePreposition(name);
            break;
          case 2:
            list.SelectPreposition(name, 0);
            break;
          default:
            list.ClearCurrentPreposition();
        }
        list.Names();
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_GT(statuses.load(), 50);
  for (const u32 channel : {0U, 1U}) {
    std::string names = lists[channel].Names();
    std::erase(names, '*');
    EXPECT_EQ(List(&heads[channel], OpenReader(folder.Path()), false, channel).Names(), names);
    EXPECT_EQ(heads[channel].stored.size(), lists[channel].GetPrepositionCount());
  }
}

}  // namespace
}  // namespace sarnevo
