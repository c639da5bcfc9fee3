#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/HostProcess.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::Current;
using kolvex_test::Names;
using kolvex_test::PresetHead;
using kolvex_test::PtzFixture;

// What list, file and camera must hold, told without the code under test.
struct Model {
  const bool fixed;
  std::map<u32, std::string> file{};  // by slot; the camera has positions for just these
  std::map<u32, std::string> names{};
  std::vector<u32> order{};
  i32 current = -1;

  void Restart() {
    names = file;
    current = fixed ? 0 : -1;
    for (u32 slot = 0; fixed && slot < 64; ++slot) {
      names.try_emplace(slot, "empty p" + std::to_string(slot) + " ");
      order.resize(slot + 1, slot);
    }
  }
  u32 CurrentSlot() const { return current < 0 ? 0 : order[static_cast<std::size_t>(current)]; }
  i32 Add(const std::string& name, bool refused) {
    u32 slot = CurrentSlot();
    if (current >= 0) {
      names[slot] = name;
      if (fixed && refused) {
        return PtzAddFailed;
      }
    } else {
      while (names.contains(slot)) {
        ++slot;
      }
      if (order.size() == 32 || refused) {
        return order.size() == 32 ? PtzLimitReached : PtzAddFailed;
      }
      names[slot] = name;
      order.push_back(slot);
      current = static_cast<i32>(order.size()) - 1;
    }
    file[slot] = name;
    return PtzDone;
  }
  i32 Select(u32 slot, bool refused) {
    const auto place = std::find(order.begin(), order.end(), slot) - order.begin();
    if (!names.contains(slot) || (refused && place != current)) {
      return PtzNoPreposition;
    }
    current = static_cast<i32>(place);
    return PtzDone;
  }
  i32 Delete(u32 slot, bool refused) {
    if (fixed ? refused : !names.contains(slot)) {
      return PtzNoPreposition;
    }
    if (fixed) {
      file.clear();
      Restart();
      return PtzDone;
    }
    current = -1;
    if (!refused) {
      names.erase(slot);
      file.erase(slot);
      std::erase(order, slot);
    }
    return PtzDone;
  }
};

// 200 operations on the whole driver, the host restarted now and then, and a camera that refuses some.
TEST(OperatorsDay, LeavesListCameraAndFileInStep) {
  const std::string file = *platform::HostExecutableFolder() + "/Kolvex_day.preset";
  for (const bool fixed : {false, true}) {
    for (u32 seed = 0; seed < 2; ++seed) {
      std::filesystem::remove(file);  // of a day before that failed
      PresetHead head(fixed);
      PtzFixture fixture(fixed ? "1" : "2", 1, "day");
      fixture.camera.SetAnswer(std::ref(head));
      std::mt19937 random(seed);
      Model model{fixed};
      IIPPTZApiEx* control = nullptr;
      for (u32 step = 0; step < 200; ++step) {
        SCOPED_TRACE((fixed ? "fixed slots, day " : "normal, day ") + std::to_string(seed) + ", operation " +
                     std::to_string(step));
        if (step % 25 == 0) {
          head.RefuseEvery(0);
          fixture.driver->Close();
          ASSERT_TRUE(fixture.driver->Open(nullptr, nullptr, &fixture.params));
          control = fixture.driver->GetPTZDriverEx()->GetPTZApiEx(0);
          ASSERT_NE(control, nullptr);
          model.Restart();
          head.GoTo(0);  // where a list with fixed slots takes the head to be
        }
        const bool refused = random() % 8 == 0;
        head.RefuseEvery(refused ? 1 : 0);
        const u32 slot = static_cast<u32>(random() % (fixed ? 64 : 32));
        const std::string known = model.names.contains(slot) ? model.names[slot] : "none";
        const u32 choice = static_cast<u32>(random() % 40);
        if (choice < 12) {
          EXPECT_EQ(choice < 4   ? control->StartMove(choice, 8)
                    : choice < 8 ? control->ZoomIn(1)
                                 : control->FocusFar(1),
                    PtzDone);
          EXPECT_EQ(control->StopMove(), PtzDone);
          model.current = fixed ? model.current : -1;
        } else if (choice < 22) {
          EXPECT_EQ(control->SelectPreposition(0, known.c_str()), model.Select(slot, refused));
        } else if (choice < (fixed ? 23 : 25)) {
          EXPECT_EQ(control->DeletePreposition(known.c_str()), model.Delete(slot, refused));
          head.GoTo(model.CurrentSlot());
        } else {
          const std::string name = "n" + std::to_string(step);
          EXPECT_EQ(control->AddPreposition(name.c_str()), model.Add(name, refused));
        }
        std::string names;
        for (const u32 entry : model.order) {
          names += model.names[entry] + ",";
        }
        ASSERT_EQ(Names(*control), names);
        ASSERT_EQ(Current(*control), model.current < 0 ? "-23" : model.names[model.CurrentSlot()]);
        std::set<u32> slots;
        for (const auto& entry : model.file) {
          slots.insert(entry.first);
        }
        ASSERT_EQ(head.Stored(), slots) << fixture.camera.requests.Text();
      }
      fixture.driver->Close();
      EXPECT_TRUE(std::filesystem::remove(file));
    }
  }
}

}  // namespace
}  // namespace sarnevo
