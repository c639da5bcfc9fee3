#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/HostProcess.h"
#include "ptz/PtzFixture.h"
#include "simcam/CameraFarm.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;

// Each host thread does what an operator does, at random but the same each time. The whole driver, and a camera whose
// head remembers positions and understands right frames alone.
TEST(OperatorsDay, OfFourHostThreadsLeavesListCameraAndFileInStep) {
  const std::string file = *platform::HostExecutableFolder() + "/Kolvex_day.preset";
  std::filesystem::remove(file);
  simcam::CameraFarm farm(1);
  simcam::SimulatedCamera& camera = farm.Add("group=1,address=127.0.1.1,serial=2");
  FakeParams params;
  params.address = "127.0.1.1";
  params.user = "admin";
  params.password = "kolvex";
  params.settings = {{2, "1"}, {3, "1"}, {9, "day"}};
  CKolvexIPCaptureDriver driver;
  const auto start = [&]() -> IIPPTZApiEx& {
    driver.Close();
    EXPECT_TRUE(driver.Open(nullptr, nullptr, &params));
    return *driver.GetPTZDriverEx()->GetPTZApiEx(0);
  };
  IIPPTZApiEx& control = start();
  const auto operate = [&](u32 seed) {
    std::mt19937 random(seed);
    for (int step = 0; step < 60; ++step) {
      char name[64] = "nothing";
      control.GetPrepositionName(static_cast<u32>(random() % 8), name, sizeof(name));
      const auto number = static_cast<u32>(random());
      if (number % 7 == 0) {
        EXPECT_EQ(camera.Control("http=reset/connect*2"), "");
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
  const std::string names = Names(control);
  EXPECT_FALSE(names.empty());
  camera.Control("heal=1");
  IIPPTZApiEx& again = start();
  EXPECT_EQ(Names(again), names);
  std::set<u32> slots;
  char name[64];
  for (u32 i = 0; again.GetPrepositionName(i, name, sizeof(name)) == PtzDone; ++i) {
    EXPECT_EQ(again.SelectPreposition(0, name), PtzDone);
    EXPECT_TRUE(slots.insert(camera.Status().head.lastSlot).second) << "two names for a slot";
  }
  const simcam::HeadStatus head = camera.Status().head;
  EXPECT_EQ(head.errors, 0U) << head.lastError;
  std::set<u32> stored;
  for (const std::string& preset : head.presets) {
    stored.insert(static_cast<u32>(std::stoul(preset)));
  }
  EXPECT_EQ(slots, stored);
  driver.Close();
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace sarnevo
