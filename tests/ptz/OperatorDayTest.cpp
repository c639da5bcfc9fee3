#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PresetModel.h"
#include "platform/HostProcess.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "ptz/PtzFixture.h"
#include "xml/Utf8.h"

namespace sarnevo {
namespace {

using kolvex_test::Current;
using kolvex_test::Names;
using kolvex_test::PresetHead;
using kolvex_test::PtzFixture;
using kolvex_test::SerialCamera;

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
      // What list, file and camera must hold, told without the code under test. The camera has positions for
      // just those in the file.
      kolvex_fuzz::PresetFileModel stored;
      const u32 positions = fixed ? 64 : 32;
      kolvex_fuzz::PresetModel model(0, true, fixed, positions, stored);
      IIPPTZApiEx* control = nullptr;
      for (u32 step = 0; step < 200; ++step) {
        SCOPED_TRACE((fixed ? "fixed slots, day " : "normal, day ") + std::to_string(seed) + ", operation " +
                     std::to_string(step));
        if (step % 25 == 0) {
          head.refuseEvery = 0;
          fixture.driver->Close();
          ASSERT_TRUE(fixture.driver->Open(nullptr, nullptr, &fixture.params));
          control = fixture.driver->GetPTZDriverEx()->GetPTZApiEx(0);
          ASSERT_NE(control, nullptr);
          model.Load();
          head.standsAt = 0;  // where a list with fixed slots takes the head to be
        }
        const bool refused = random() % 8 == 0;
        head.refuseEvery = refused ? 1 : 0;
        model.cameraRefuses = refused;
        const std::wstring listed = model.NameAt(static_cast<u32>(random()) % positions);
        const std::wstring known = listed.empty() ? L"none" : listed;
        const u32 choice = static_cast<u32>(random() % 40);
        if (choice < 12) {
          EXPECT_EQ(choice < 4   ? control->StartMove(choice, 8)
                    : choice < 8 ? control->ZoomIn(1)
                                 : control->FocusFar(1),
                    PtzDone);
          EXPECT_EQ(control->StopMove(), PtzDone);
          model.Move();
        } else if (choice < 22) {
          EXPECT_EQ(control->SelectPreposition(0, ToUtf8(known).c_str()),
                    model.Select(known) ? PtzDone : PtzNoPreposition);
        } else if (choice < (fixed ? 23 : 25)) {
          const bool deleted = model.Delete(known);
          EXPECT_EQ(control->DeletePreposition(ToUtf8(known).c_str()), deleted ? PtzDone : PtzNoPreposition);
          if (deleted) {
            head.standsAt = 0;
          }
        } else {
          const std::wstring name = L"n" + std::to_wstring(step);
          EXPECT_EQ(control->AddPreposition(ToUtf8(name).c_str()), model.Add(name));
        }
        std::wstring names;
        for (u32 position = 0; position < model.Count(); ++position) {
          names += model.NameAt(position) + L",";
        }
        ASSERT_EQ(Names(*control), ToUtf8(names));
        ASSERT_EQ(Current(*control), model.Current().empty() ? "-23" : ToUtf8(model.Current()));
        std::set<u32> slots;
        for (const auto& [index, position] : stored.memory[0]) {
          slots.insert(position.slot);
        }
        ASSERT_EQ(head.Stored(), slots) << fixture.camera.requests.Text();
      }
      fixture.driver->Close();
      EXPECT_TRUE(std::filesystem::remove(file));
    }
  }
}

// One host thread: what an operator does, at random but the same each time.
void Operate(IIPPTZApiEx& control, unsigned seed) {
  std::mt19937 random(seed);
  for (int step = 0; step < 60; ++step) {
    char name[64] = "nothing";
    control.GetPrepositionName(static_cast<u32>(random() % 8), name, sizeof(name));
    const auto number = static_cast<u32>(random());
    if (number % 6 < 2) {
      EXPECT_EQ(number % 2 == 0 ? control.StartMove(number / 6 % 10, 1) : control.FocusNear(1), PtzDone);
    } else if (number % 6 < 4) {
      number % 2 == 0 ? control.DeletePreposition(name) : control.SelectPreposition(0, name);
    } else {
      EXPECT_EQ(control.StartMove(PtzLeft, 0), PtzDone);
      control.AddPreposition(("t" + std::to_string(seed) + "." + std::to_string(step)).c_str());
    }
  }
}

TEST(OperatorsDay, OfFourHostThreadsLeavesListCameraAndFileInStep) {
  PtzFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  PresetHead head(false);
  head.refuseEvery = 7;
  fixture.camera.SetAnswer([&](SerialCamera::Connection& connection, const std::string& request) {
    std::this_thread::sleep_for(std::chrono::milliseconds{request.back() % 3});  // takes its time over some
    head(connection, request);
  });
  std::vector<std::thread> hosts;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    hosts.emplace_back([&control, seed] { Operate(control, seed); });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
  const std::string names = Names(control);
  fixture.handler.reset();  // behind it nothing is on its way to the camera

  CXMLPrepositionReader file("Kolvex", fixture.folder.Path());
  ASSERT_TRUE(file.Open("Kolvex_00:11:22:aB.preset", true));
  std::string namesInFile;
  std::set<u32> slotsInFile;
  PrepositionRecord record;
  for (u32 index = 0; file.Read(0, index, record); ++index) {
    namesInFile += ToUtf8(record.name) + ",";
    EXPECT_TRUE(slotsInFile.insert(record.slot).second) << "two names for slot " << record.slot;
  }
  EXPECT_EQ(namesInFile, names);
  EXPECT_EQ(slotsInFile, head.Stored());
  EXPECT_FALSE(names.empty());
}

}  // namespace
}  // namespace sarnevo
