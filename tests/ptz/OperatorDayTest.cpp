#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PresetModel.h"
#include "platform/HostProcess.h"
#include "ptz/PtzFixture.h"
#include "simcam/CameraFarm.h"
#include "xml/Utf8.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;
using std::string_view;

// A host with the whole driver, and a camera whose head remembers positions and understands right frames alone.
struct Day {
  explicit Day(bool fixed)
      : camera(farm.Add(
            string_view(fixed ? "group=1,address=127.0.1.1,serial=1" : "group=1,address=127.0.1.1,serial=2"))) {
    params.address = "127.0.1.1";
    params.user = "admin";
    params.password = "kolvex";
    params.settings = {{2, "1"}, {3, "1"}, {9, "day"}};
    Forget();
  }
  ~Day() {
    driver.Close();
    Forget();
  }
  static void Forget() { std::filesystem::remove(*platform::HostExecutableFolder() + "/Kolvex_day.preset"); }
  void Restart() {
    driver.Close();
    ASSERT_TRUE(driver.Open(nullptr, nullptr, &params));
    control = driver.GetPTZDriverEx()->GetPTZApiEx(0);
    ASSERT_NE(control, nullptr);
  }
  // As the camera counts them.
  std::set<u32> StoredSlots() {
    const simcam::HeadStatus head = camera.Status().head;
    EXPECT_EQ(head.errors, 0U) << head.lastError;
    std::set<u32> slots;
    for (const std::string& preset : head.presets) {
      slots.insert(static_cast<u32>(std::stoul(preset)));
    }
    return slots;
  }

  simcam::CameraFarm farm{1};
  simcam::SimulatedCamera& camera;
  FakeParams params;
  CKolvexIPCaptureDriver driver;
  IIPPTZApiEx* control = nullptr;
};

// 200 operations, the host restarted now and then, and a camera that refuses some.
TEST(OperatorsDay, LeavesListCameraAndFileInStep) {
  for (const u32 day : {0, 1, 2, 3}) {
    const bool fixed = day % 2 != 0;
    Day scene(fixed);
    std::mt19937 random(day);
    // What list, file and camera must hold, worked out without the code under test. The camera has positions for
    // just those in the file.
    kolvex_fuzz::PresetFileModel stored;
    const u32 positions = fixed ? 64 : 32;
    kolvex_fuzz::PresetModel model(0, true, fixed, positions, stored);
    const auto select = [&](const std::wstring& name) {
      EXPECT_EQ(scene.control->SelectPreposition(0, ToUtf8(name).c_str()),
                model.Select(name) ? PtzDone : PtzNoPreposition);
    };
    // A list with fixed slots takes the head to be at the first: now it is.
    const auto goHome = [&] {
      select(fixed ? model.NameAt(1) : L"");
      select(fixed ? model.NameAt(0) : L"");
    };
    for (u32 step = 0; step < 200; ++step) {
      SCOPED_TRACE("day " + std::to_string(day) + ", operation " + std::to_string(step));
      scene.camera.Control("heal=1");
      model.cameraRefuses = false;
      if (step % 25 == 0) {
        scene.Restart();
        model.Load();
        goHome();
      }
      model.cameraRefuses = random() % 8 == 0;
      scene.camera.Control(model.cameraRefuses ? "http=reset/connect" : "");
      const std::wstring listed = model.NameAt(static_cast<u32>(random()) % positions);
      const std::wstring known = listed.empty() ? L"none" : listed;
      const u32 choice = static_cast<u32>(random() % 40);
      if (choice < 12) {
        EXPECT_EQ(choice < 10 ? scene.control->StartMove(choice, 8) : scene.control->FocusFar(1), PtzDone);
        EXPECT_EQ(scene.control->StopMove(), PtzDone);
        model.Move();
      } else if (choice < 22) {
        select(known);
      } else if (choice < (fixed ? 23 : 25)) {
        const bool deleted = model.Delete(known);
        EXPECT_EQ(scene.control->DeletePreposition(ToUtf8(known).c_str()),
                  deleted ? PtzDone : PtzNoPreposition);
        goHome();
      } else {
        const std::wstring name = L"n" + std::to_wstring(step);
        EXPECT_EQ(scene.control->AddPreposition(ToUtf8(name).c_str()), model.Add(name));
      }
      std::wstring names;
      for (u32 position = 0; position < model.Count(); ++position) {
        names += model.NameAt(position) + L",";
      }
      ASSERT_EQ(Names(*scene.control), ToUtf8(names));
      ASSERT_EQ(Current(*scene.control), model.Current().empty() ? "-23" : ToUtf8(model.Current()));
      std::set<u32> slots;
      for (const auto& [index, position] : stored.memory[0]) {
        slots.insert(fixed ? position.slot : position.slot + 1);
      }
      ASSERT_EQ(scene.StoredSlots(), slots);
    }
  }
}

// Each host thread does what an operator does, at random but the same each time.
TEST(OperatorsDay, OfFourHostThreadsLeavesListCameraAndFileInStep) {
  Day scene(false);
  scene.Restart();
  const auto operate = [&](u32 seed) {
    IIPPTZApiEx& control = *scene.control;
    std::mt19937 random(seed);
    for (int step = 0; step < 60; ++step) {
      char name[64] = "nothing";
      control.GetPrepositionName(static_cast<u32>(random() % 8), name, sizeof(name));
      const auto number = static_cast<u32>(random());
      if (number % 7 == 0) {
        EXPECT_EQ(scene.camera.Control("http=reset/connect*2"), "");
      } else if (number % 6 < 2) {
        EXPECT_EQ(number % 2 == 0 ? control.StartMove(number / 6 % 10, 1) : control.FocusNear(1), PtzDone);
      } else if (number % 6 < 4) {
        number % 2 == 0 ? control.DeletePreposition(name) : control.SelectPreposition(0, name);
      } else {
        EXPECT_EQ(control.StartMove(PtzLeft, 0), PtzDone);
        control.AddPreposition(("t" + std::to_string(seed) + "." + std::to_string(step)).c_str());
      }
    }
  };
  std::vector<std::jthread> hosts;
  for (u32 seed = 1; seed <= 4; ++seed) {
    hosts.emplace_back(operate, seed);
  }
  hosts.clear();
  const std::string names = Names(*scene.control);
  EXPECT_FALSE(names.empty());
  scene.camera.Control("heal=1");
  scene.Restart();
  EXPECT_EQ(Names(*scene.control), names);
  std::set<u32> slots;
  char name[64];
  for (u32 i = 0; scene.control->GetPrepositionName(i, name, sizeof(name)) == PtzDone; ++i) {
    EXPECT_EQ(scene.control->SelectPreposition(0, name), PtzDone);
    EXPECT_TRUE(slots.insert(scene.camera.Status().head.lastSlot).second) << "two names for a slot";
  }
  EXPECT_EQ(slots, scene.StoredSlots());
}

}  // namespace
}  // namespace sarnevo
