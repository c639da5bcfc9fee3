#include "ptz/CPTZHandler.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kolvex/Exports.h"
#include "platform/Event.h"
#include "platform/HostProcess.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::Names;
using kolvex_test::PtzFixture;
using kolvex_test::SerialCamera;
using kolvex_test::Take;
using std::chrono::steady_clock;

constexpr char kQuestion[] = "/comport.cgi?action=retrieve\n";
using Files = std::set<std::string>;

// Whether a PTZ thread is there; the system keeps 15 characters of a name.
bool PtzThreadRuns() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    if (std::getline(std::ifstream(task.path() / "comm"), name) && name == "KolvexIPPTZThre") {
      return true;
    }
  }
  return false;
}

TEST(CPTZHandler, BuildsAChannelWhenItIsAskedForIt) {
  PtzFixture fixture("2", 2);
  EXPECT_EQ(fixture.folder.List(), Files{});
  EXPECT_EQ(fixture.handler->GetPTZApiEx(2), nullptr);
  EXPECT_EQ(fixture.handler->GetPTZApiEx(0xFFFFFFFF), nullptr);
  EXPECT_EQ(fixture.camera.requests.Text(), "");

  IIPPTZApiEx* const second = fixture.handler->GetPTZApiEx(1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Take(fixture.camera.requests), kQuestion);
  EXPECT_EQ(fixture.folder.List(), Files{"Kolvex_00:11:22:aB.preset"}) << "the address as it is";
  EXPECT_EQ(fixture.handler->GetPTZApiEx(1), second);
  EXPECT_EQ(fixture.handler->GetPTZApi(1), second);
  EXPECT_EQ(Take(fixture.camera.requests), "");

  IIPPTZApiEx* const first = fixture.handler->GetPTZApiEx(0);
  ASSERT_NE(first, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(Take(fixture.camera.requests), kQuestion);

  // One file for both, a part of its own for each.
  EXPECT_EQ(first->AddPreposition("Door"), 1);
  EXPECT_EQ(second->AddPreposition("Yard"), 1);
  EXPECT_EQ(Names(*first) + Names(*second), "Door,Yard,");
  const std::string file = fixture.folder.Read("Kolvex_00:11:22:aB.preset");
  EXPECT_LT(file.find("PtzChannel01"), file.find("Door"));
  EXPECT_LT(file.find("PtzChannel02"), file.find("Yard"));
  EXPECT_EQ(fixture.messages.Text(), "");
}

TEST(CPTZHandler, GivesNothingWithoutPTZ) {
  for (const bool group2 : {true, false}) {  // or without a hardware address
    PtzFixture fixture("1", 1, group2 ? "00:11" : "", group2 ? "2" : "1");
    EXPECT_EQ(fixture.handler->GetPTZApiEx(0), nullptr) << group2;
    EXPECT_EQ(fixture.folder.List(), Files{}) << group2;
    EXPECT_EQ(fixture.messages.Text(), "") << group2;
  }
}

// The control is there, but nothing can be stored; and the camera doesn't choose where the host writes.
TEST(CPTZHandler, GoesOnWithoutItsFile) {
  for (const std::string& address : {std::string("/../../x"), std::string("a/b"), std::string(300, 'm')}) {
    PtzFixture fixture("2", 2, address);
    IIPPTZApiEx& control = fixture.Control();
    EXPECT_EQ(control.StartMove(PtzLeft, 8), 1) << address;
    EXPECT_EQ(Take(fixture.camera.requests, 1), "FF010004200025\n") << address;
    EXPECT_EQ(control.AddPreposition("a"), -18) << address;
    EXPECT_EQ(fixture.folder.List(), Files{}) << address;
    fixture.Restart();
    EXPECT_EQ(fixture.Control().GetPrepositionCount(), 0U) << address;
  }
}

TEST(CPTZHandler, BuildsOneControlForManyFirstRequests) {
  PtzFixture fixture("1", 2);
  std::vector<IIPPTZApiEx*> controls(8);
  std::vector<std::thread> hosts;
  for (std::size_t i = 0; i < controls.size(); ++i) {
    hosts.emplace_back([&, i] { controls[i] = fixture.handler->GetPTZApiEx(i % 2); });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
  EXPECT_EQ(std::set<IIPPTZApiEx*>(controls.begin(), controls.end()).size(), 2U);
  EXPECT_EQ(fixture.camera.requests.Text(), std::string(kQuestion) + kQuestion);
}

// Both ways to end a driver, while the camera hangs or drips in a request of each channel and more are queued.
TEST(CPTZHandler, EndsWithTheDriverAndAllChannelsOfACameraThatHangsAtOnce) {
  constexpr u32 kChannels = 8;
  for (const bool byDelete : {false, true}) {
    PtzFixture fixture("1", kChannels);
    IIPPTZDriverEx* const ptz = fixture.driver->GetPTZDriverEx();
    ASSERT_NE(ptz, nullptr);
    EXPECT_EQ(fixture.driver->GetPTZDriver(), ptz);
    for (u32 channel = 0; channel < kChannels; ++channel) {
      ASSERT_NE(ptz->GetPTZApiEx(channel), nullptr);
    }
    EXPECT_TRUE(std::filesystem::remove(*platform::HostExecutableFolder() + "/Kolvex_00:11:22:aB.preset"));
    Take(fixture.camera.requests);
    fixture.camera.SetAnswer(byDelete ? SerialCamera::Drip : SerialCamera::Hang);
    for (u32 channel = 0; channel < kChannels; ++channel) {
      for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(ptz->GetPTZApiEx(channel)->StartMove(PtzLeft, 16), 1);
      }
    }
    fixture.camera.requests.WaitFor("", kChannels);
    fixture.handler.reset();  // not the driver's
    const auto start = steady_clock::now();
    if (byDelete) {
      DeleteIPCapture(fixture.driver.release());
    } else {
      fixture.driver->Close();
      EXPECT_EQ(fixture.driver->GetPTZDriverEx(), nullptr);
    }
    EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds{2500}) << "half the time-out";
    EXPECT_EQ(fixture.camera.requests.Count(""), kChannels);
  }
}

// A host that closes from within a message: the PTZ thread ends the object that it runs for.
TEST(CPTZHandler, MayBeEndedByAMessage) {
  PtzFixture fixture("1");
  IIPPTZApiEx& control = fixture.Control();
  fixture.camera.SetAnswer(SerialCamera::Refuse);
  platform::Event returned(false, true);
  bool first = true;
  fixture.sink.onDebugInfo = [&] {
    if (std::exchange(first, false)) {
      returned.Wait(platform::Milliseconds{20'000});  // a host ends nothing while it is in there itself
      fixture.handler.reset();
      fixture.camera.requests.Add("ended");
    }
  };
  ASSERT_EQ(control.FocusNear(1), 1);
  ASSERT_TRUE(fixture.messages.WaitFor(""));
  EXPECT_TRUE(PtzThreadRuns());
  returned.Set();
  EXPECT_TRUE(fixture.camera.requests.WaitFor("ended"));
  // The thread leaves behind the callback, and must be gone before the host's objects are.
  while (PtzThreadRuns()) {
    std::this_thread::yield();
  }
}

}  // namespace
}  // namespace sarnevo
