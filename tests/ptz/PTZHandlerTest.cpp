#include "ptz/CPTZHandler.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ptz/ControlFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::ControlFixture;
using kolvex_test::Current;
using kolvex_test::Names;
using kolvex_test::SerialCamera;
using std::chrono::steady_clock;

constexpr char kQuestion[] = "GET /comport.cgi?action=retrieve HTTP/1.1\n";
using Files = std::set<std::string>;

TEST(CPTZHandler, BuildsAChannelWhenItIsAskedForIt) {
  ControlFixture fixture("2", 2);
  EXPECT_EQ(fixture.folder.List(), Files{});
  EXPECT_EQ(fixture.handler->GetPTZApiEx(2), nullptr);
  EXPECT_EQ(fixture.handler->GetPTZApiEx(0xFFFFFFFF), nullptr);
  EXPECT_EQ(fixture.camera.Requests().Text(), "");

  IIPPTZApiEx* const second = fixture.handler->GetPTZApiEx(1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(fixture.camera.Requests().Take(), kQuestion);
  EXPECT_EQ(fixture.folder.List(), Files{"Kolvex_00:11:22:aB.preset"}) << "the address as it is";
  EXPECT_EQ(fixture.handler->GetPTZApiEx(1), second);
  EXPECT_EQ(fixture.handler->GetPTZApi(1), second);
  EXPECT_EQ(fixture.camera.Requests().Take(), "");

  IIPPTZApiEx* const first = fixture.handler->GetPTZApiEx(0);
  ASSERT_NE(first, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(fixture.camera.Requests().Take(), kQuestion);

  // One file for both, a part of its own for each.
  EXPECT_EQ(first->AddPreposition("Door"), 1);
  EXPECT_EQ(second->AddPreposition("Yard"), 1);
  EXPECT_EQ(Names(*first) + Names(*second), "Door,Yard,");
  const std::string file = fixture.folder.Read("Kolvex_00:11:22:aB.preset");
  EXPECT_LT(file.find("PtzChannel01"), file.find("Door"));
  EXPECT_LT(file.find("PtzChannel02"), file.find("Yard"));
  EXPECT_EQ(fixture.Messages(), "");
}

TEST(CPTZHandler, GivesNothingWithoutPTZ) {
  struct Row {
    const char* name;
    const char* hardwareAddress;
    const char* group;
  };
  for (const Row& row : {Row{"a camera of group 2", "00:11", "2"}, Row{"no hardware address", "", "1"}}) {
    ControlFixture fixture("1", 1, row.hardwareAddress, row.group);
    EXPECT_EQ(fixture.handler->GetPTZApiEx(0), nullptr) << row.name;
    EXPECT_EQ(fixture.handler->GetPTZApi(0), nullptr) << row.name;
    EXPECT_EQ(fixture.folder.List(), Files{}) << row.name;
    EXPECT_EQ(fixture.Messages(), "") << row.name;
  }
}

// The control is there, but nothing can be stored; and the camera doesn't choose where the host writes.
TEST(CPTZHandler, GoesOnWithoutItsFile) {
  for (const std::string& address : {std::string("/../../x"), std::string("a/b"), std::string(300, 'm')}) {
    ControlFixture fixture("2", 2, address);
    IIPPTZApiEx& control = fixture.Control();
    EXPECT_EQ(control.StartMove(PtzLeft, 8), 1) << address;
    EXPECT_EQ(fixture.camera.Requests().WaitFor(1), "FF010004200025\n") << address;
    EXPECT_EQ(control.AddPreposition("a"), -18) << address;
    EXPECT_EQ(fixture.folder.List(), Files{}) << address;
    fixture.Restart();
    EXPECT_EQ(fixture.Control().GetPrepositionCount(), 0U) << address;
  }
}

TEST(CPTZHandler, KeepsAnUnreachableCamerasObject) {
  ControlFixture fixture("2");
  fixture.camera.SetComportReply("");
  IIPPTZApiEx& control = fixture.Control();
  const std::string message =
      "OnDebugInfo 1 sarnevo::CGroup1PTZComm::UpdatePtzProtocol: cannot send HTTP message to 127.0.0.1:" +
      std::to_string(fixture.camera.Port()) + ", message=/comport.cgi?action=retrieve, http status=0\n";
  EXPECT_EQ(fixture.Messages(), message + message) << "at the control's opening and the thread's";
  EXPECT_EQ(control.IsPTZAvailable(), 0U);
  fixture.camera.SetComportReply("HTTP/1.1 200 OK\r\n\r\nserial_device=2");
  EXPECT_EQ(control.IsPTZAvailable(), 1U);
  CPtzCapabilities record;
  EXPECT_EQ(control.GetCapabilities(&record), 1);
  EXPECT_EQ(record.words[CPtzCapabilities::kPrepositionLimit], 33U);
}

TEST(CPTZHandler, BuildsOneControlForManyFirstRequests) {
  ControlFixture fixture("1", 2);
  std::vector<IIPPTZApiEx*> controls(8);
  std::vector<std::thread> hosts;
  for (std::size_t i = 0; i < controls.size(); ++i) {
    hosts.emplace_back([&, i] { controls[i] = fixture.handler->GetPTZApiEx(i % 2); });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
  EXPECT_EQ(std::set<IIPPTZApiEx*>(controls.begin(), controls.end()).size(), 2U);
  EXPECT_EQ(fixture.camera.Requests().Text(), std::string(kQuestion) + kQuestion);
}

TEST(CPTZHandler, EndsAllChannelsOfACameraThatHangsAtOnce) {
  constexpr u32 kChannels = 8;
  ControlFixture fixture("1", kChannels);
  for (u32 channel = 0; channel < kChannels; ++channel) {
    ASSERT_NE(fixture.handler->GetPTZApiEx(channel), nullptr);
  }
  fixture.camera.Requests().Take();
  fixture.camera.SetAnswer(SerialCamera::Hang);
  for (u32 channel = 0; channel < kChannels; ++channel) {
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(fixture.handler->GetPTZApiEx(channel)->StartMove(PtzLeft, 16), 1);
    }
  }
  fixture.camera.Requests().WaitFor(kChannels);
  const auto start = steady_clock::now();
  fixture.handler.reset();
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds{3});
  EXPECT_EQ(fixture.camera.Requests().Count(), kChannels);
}

// A host that closes from within a message: the PTZ thread ends the object that it runs for.
TEST(CPTZHandler, MayBeEndedByAMessage) {
  ControlFixture fixture("1");
  IIPPTZApiEx& control = fixture.Control();
  fixture.camera.SetAnswer(SerialCamera::Refuse);
  fixture.sink.onDebugInfo = [&] {
    fixture.sink.onDebugInfo = nullptr;
    fixture.handler.reset();
    fixture.log.Add("ended");
  };
  ASSERT_EQ(control.FocusNear(1), 1);
  ASSERT_TRUE(fixture.log.WaitFor("ended"));
}

}  // namespace
}  // namespace sarnevo
