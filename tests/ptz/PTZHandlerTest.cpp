#include "ptz/CPTZHandler.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "kolvex/Exports.h"
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

TEST(CPTZHandler, BuildsAChannelWhenItIsAskedForIt) {
  PtzFixture fixture("2", 2);
  EXPECT_EQ(fixture.folder.List(), Files{});
  EXPECT_EQ(fixture.handler->GetPTZApiEx(2), nullptr);
  EXPECT_EQ(fixture.camera.requests.Text(), "");

  IIPPTZApiEx* const second = fixture.handler->GetPTZApiEx(1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Take(fixture.camera.requests), kQuestion);
  EXPECT_EQ(fixture.folder.List(), Files{"Kolvex_00:11:22:aB.preset"}) << "the address as it is";
  EXPECT_EQ(fixture.handler->GetPTZApi(1), second);
  IIPPTZApiEx* const first = fixture.handler->GetPTZApiEx(0);
  ASSERT_NE(first, nullptr);
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

// Without a head or a hardware address there is no control. With an address that can't name a file the control is
// there, but nothing can be stored; the camera doesn't choose where the host writes.
TEST(CPTZHandler, GoesOnWithoutWhatItLacks) {
  const std::pair<std::string, const char*> rows[] = {
      {"00:11", "2"}, {"", "1"}, {"/../../x", "1"}, {"a/b", "1"}, {std::string(300, 'm'), "1"}};
  for (const auto& [address, group] : rows) {
    SCOPED_TRACE(address + " in group " + group);
    PtzFixture fixture("2", 1, address, group);
    const bool hasControl = address.size() > 2 && group == std::string("1");
    ASSERT_EQ(fixture.handler->GetPTZApiEx(0) != nullptr, hasControl);
    if (hasControl) {
      EXPECT_EQ(fixture.Control().StartMove(PtzLeft, 8), 1);
      EXPECT_EQ(Take(fixture.camera.requests, 1), "FF010004200025\n");
      EXPECT_EQ(fixture.Control().AddPreposition("a"), -18);
    } else {
      EXPECT_EQ(fixture.messages.Text(), "");
    }
    EXPECT_EQ(fixture.folder.List(), Files{});
  }
}

// Both ways to end a driver, while the camera hangs in a request of each channel and more are queued.
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
    fixture.camera.SetAnswer(SerialCamera::Hang);
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

}  // namespace
}  // namespace sarnevo
