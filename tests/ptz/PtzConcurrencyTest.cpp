#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/Event.h"
#include "prepositions/CXMLPrepositionReader.h"
#include "ptz/PtzFixture.h"
#include "xml/Utf8.h"

namespace sarnevo {
namespace {

using kolvex_test::Current;
using kolvex_test::Names;
using kolvex_test::PtzFixture;
using kolvex_test::SerialCamera;

// One host thread: what an operator does, at random but the same each time.
void Operate(IIPPTZApiEx& control, unsigned seed) {
  std::mt19937 random(seed);
  for (int step = 0; step < 60; ++step) {
    char name[64] = "nothing";
    control.GetPrepositionName(static_cast<u32>(random() % 8), name, sizeof(name));
    CPtzCapabilities record;
    switch (random() % 9) {
      case 0:
        EXPECT_EQ(control.StartMove(static_cast<u32>(random() % 10), 1 + static_cast<i32>(random() % 16)), 1);
        break;
      case 1:
        EXPECT_EQ(control.StopMove(), 1);
        break;
      case 2:
        EXPECT_EQ(control.FocusNear(static_cast<u32>(random() % 2)), 1);
        break;
      case 3:
        EXPECT_EQ(control.IrisOpen(static_cast<u32>(random() % 2)), 1);
        break;
      case 4:
        control.DeletePreposition(name);
        break;
      case 5:
        control.SelectPreposition(0, name);
        break;
      case 6:
        EXPECT_EQ(control.GetCapabilities(&record), 1);
        EXPECT_EQ(control.IsPTZAvailable(), 1U);
        break;
      default:
        EXPECT_EQ(control.StartMove(PtzLeft, 0), 1);
        control.AddPreposition(("t" + std::to_string(seed) + "." + std::to_string(step)).c_str());
        break;
    }
  }
}

TEST(PtzConcurrency, KeepsListCameraAndFileInStep) {
  PtzFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  kolvex_test::PresetHead head(false);
  head.RefuseEvery(7);
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

TEST(PtzConcurrency, AMovementNeverWaitsForARecall) {
  for (const bool fixedSlots : {false, true}) {
    platform::Event goOn(false, true);  // outlives the camera
    PtzFixture fixture(fixedSlots ? "1" : "2");
    IIPPTZApiEx& control = fixture.Control();
    ASSERT_EQ(control.AddPreposition("a"), 1);
    ASSERT_EQ(control.StartMove(PtzLeft, 0), 1);
    fixture.camera.requests.Clear();
    fixture.camera.SetAnswer([&](SerialCamera::Connection& connection, const std::string& request) {
      goOn.Wait(platform::Milliseconds{4'000});  // less than the request's time-out
      SerialCamera::Ok(connection, request);
    });
    const char* const name = fixedSlots ? "empty p5 " : "a";
    std::thread recalling([&] { EXPECT_EQ(control.SelectPreposition(0, name), 1); });
    ASSERT_TRUE(fixture.camera.requests.WaitFor(""));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(control.StartMove(PtzLeft, 8), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{2});
    goOn.Set();
    recalling.join();
    EXPECT_EQ(Current(control), fixedSlots ? name : "-23") << "and is remembered behind it";
  }
}

}  // namespace
}  // namespace sarnevo
