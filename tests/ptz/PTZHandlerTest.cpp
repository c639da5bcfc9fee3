#include "ptz/CPTZHandler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "kolvex/Exports.h"
#include "platform/Event.h"
#include "platform/HostProcess.h"
#include "ptz/CGroup1PTZComm.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;
using std::chrono::milliseconds;

constexpr char kQuestion[] = "/comport.cgi?action=retrieve";
constexpr char kFile[] = "Kolvex_00:11:22:aB.preset";

// The file of a driver's own PTZ side. False when there is none.
bool RemoveOwnFile() { return std::filesystem::remove(*platform::HostExecutableFolder() + "/" + kFile); }

TEST(CPTZHandler, BuildsAChannelWhenItIsAskedForIt) {
  PtzFixture fixture("2", 2);
  EXPECT_EQ(fixture.folder.List(), std::set<std::string>{});
  EXPECT_EQ(fixture.handler->GetPTZApiEx(2), nullptr);
  EXPECT_EQ(fixture.camera.requests.Text(), "");

  IIPPTZApiEx* const second = fixture.handler->GetPTZApiEx(1);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Take(fixture.camera.requests), std::string(kQuestion) + "\n");
  EXPECT_EQ(fixture.folder.List(), std::set<std::string>{kFile}) << "the address as it is";
  EXPECT_EQ(fixture.handler->GetPTZApi(1), second);
  EXPECT_EQ(second->AddPreposition("Yard"), 1);
  // It is given out while the host holds up the message about another one's camera.
  fixture.camera.SetAnswer([](auto& connection, auto&) { connection.Reset(); });
  fixture.sink.onDebugInfo = [&] {
    std::thread([&] { EXPECT_EQ(fixture.handler->GetPTZApiEx(1), second); }).join();
  };
  EXPECT_EQ(Names(fixture.Control(0)) + Names(*second), "Yard,");
  EXPECT_NE(fixture.folder.Read(kFile).find("<PtzChannel02>"), std::string::npos);
}

// A camera that is just booting answers the second question of the opening only. The list has the slots of the protocol
// that the commands speak; of the other kind two positions would land in one slot.
TEST(CPTZHandler, FollowsTheAnswerThatTheCommandsGot) {
  PtzFixture fixture("1");
  fixture.camera.SetAnswer([&](auto& connection, auto&) {
    connection.Reset();
    fixture.camera.SetAnswer(SerialCamera::WithBody("serial_device=1"));
  });
  EXPECT_EQ(fixture.Control().GetPrepositionCount(), 64U);
}

// Without a head or a hardware address there is no control. With an address that can't name a file the control is
// there, but nothing can be stored; the camera doesn't choose where the host writes.
TEST(CPTZHandler, GoesOnWithoutWhatItLacks) {
  EXPECT_EQ(PtzFixture("2", 1, "00:11", "2").handler->GetPTZApiEx(0), nullptr);
  EXPECT_EQ(PtzFixture("2", 1, "").handler->GetPTZApiEx(0), nullptr);
  for (const std::string& address : {std::string("/../../x"), std::string("a/b"), std::string(300, 'm')}) {
    SCOPED_TRACE(address);
    PtzFixture fixture("2", 1, address);
    EXPECT_EQ(fixture.Control().StartMove(PtzLeft, 8), 1);
    EXPECT_EQ(Take(fixture.camera.requests, 1), "FF010004200025\n");
    EXPECT_EQ(fixture.Control().AddPreposition("a"), -18);
    EXPECT_EQ(fixture.folder.List(), std::set<std::string>{});
  }
}

// Both ways to end a driver, while a slow camera has a request of each channel and more are queued. Those that are under
// way reach the head: a stop that doesn't would leave it moving for good.
TEST(CPTZHandler, EndsWithTheDriverAfterTheItemsUnderWayOfAllChannelsAtOnce) {
  constexpr u32 kChannels = 8;
  constexpr milliseconds kSlow{1500};
  for (const bool byDelete : {false, true}) {
    platform::Event answer(false, true);  // outlives the camera
    PtzFixture fixture("1", kChannels);
    IIPPTZDriverEx* const ptz = fixture.DriversOwn();
    EXPECT_EQ(fixture.driver->GetPTZDriver(), ptz);
    for (u32 channel = 0; channel < kChannels; ++channel) {
      ASSERT_NE(ptz->GetPTZApiEx(channel), nullptr);
    }
    EXPECT_TRUE(RemoveOwnFile());
    Take(fixture.camera.requests);
    fixture.camera.SetAnswer([&](auto& connection, auto& request) {
      answer.Wait(kWaitLimit);
      SerialCamera::WithBody("")(connection, request);
    });
    for (u32 item = 0; item < 5 * kChannels; ++item) {
      ASSERT_EQ(ptz->GetPTZApiEx(item % kChannels)->StartMove(PtzLeft, 16), 1);
    }
    fixture.camera.requests.WaitFor("", kChannels);
    // The end of the driver has begun by then. Were it for one channel after the other, the rest would go on meanwhile.
    std::thread camera([&] {
      std::this_thread::sleep_for(kSlow);
      answer.Set();
    });
    if (byDelete) {
      DeleteIPCapture(fixture.driver.release());
    } else {
      fixture.driver->Close();
      EXPECT_EQ(fixture.driver->GetPTZDriverEx(), nullptr);
    }
    camera.join();
    EXPECT_EQ(fixture.camera.requests.Count(""), kChannels);
    EXPECT_EQ(fixture.messages.Text(), "") << "broken off";
  }
}

// The host ends the driver from inside a message: on its own thread, in the middle of each operation that can send one,
// and on the PTZ thread.
TEST(CPTZHandler, MayEndWithTheDriverInAMessage) {
  const struct {
    const char* name;
    i32 (*call)(PtzFixture&, IIPPTZDriverEx*, IIPPTZApiEx*);
    i32 result;
  } rows[] = {
      {"open", [](PtzFixture& f, auto*, auto*) { return i32{f.driver->Open(&f.sink, nullptr, &f.params)}; }, 1},
      {"first request", [](auto&, auto* ptz, auto*) { return i32{ptz->GetPTZApi(1) != nullptr}; }, 0},
      {"rename", [](auto&, auto*, auto* control) { return control->AddPreposition("b"); }, 1},
      {"invalid name", [](auto&, auto*, auto* control) { return control->AddPreposition("<"); }, -3},
      {"no text", [](auto&, auto*, auto* control) { return control->DeletePreposition("\xFF"); }, -3},
      {"refused recall", [](auto&, auto*, auto* control) { return control->SelectPreposition(0, "z"); }, -23},
      {"refused deletion", [](auto&, auto*, auto* control) { return control->DeletePreposition("z"); }, 1},
      {"item", [](auto&, auto*, auto* control) { return control->StartMove(PtzLeft, 8); }, 1},
  };
  for (const auto& row : rows) {
    for (const bool byDelete : {false, true}) {
      SCOPED_TRACE(row.name + std::string(byDelete ? ", delete" : ", close"));
      platform::Event ended;
      PtzFixture fixture("2", 2);
      IIPPTZDriverEx* const ptz = fixture.DriversOwn();
      IIPPTZApiEx* const control = ptz->GetPTZApiEx(0);
      ASSERT_NE(control, nullptr);
      EXPECT_EQ(control->AddPreposition("z") + control->StartMove(PtzLeft, 0) + control->AddPreposition("a"),
                3);
      fixture.camera.SetAnswer([](auto& connection, auto&) { connection.Reset(); });
      fixture.sink.onDebugInfo = [&, first = true]() mutable {
        if (!std::exchange(first, false)) {
          return;
        }
        byDelete ? DeleteIPCapture(fixture.driver.release()) : fixture.driver->Close();
        fixture.messages.Clear();
        ended.Set();
      };
      EXPECT_EQ(row.call(fixture, ptz, control), row.result);
      EXPECT_TRUE(ended.Wait(kWaitLimit));
      EXPECT_EQ(fixture.messages.Text(), "") << "the sink may be gone";
      EXPECT_TRUE(RemoveOwnFile());
    }
  }
}

// Each of two PTZ threads is in a message in which the host ends the other one's driver.
TEST(CPTZHandler, MayEndAnotherDriverThatEndsThisOne) {
  for (const bool byDelete : {false, true}) {
    SCOPED_TRACE(byDelete ? "delete" : "close");
    platform::Event inside[2], ended[2];
    PtzFixture fixtures[] = {PtzFixture("2"), PtzFixture("2")};
    IIPPTZApiEx* controls[2];
    for (const u32 own : {0U, 1U}) {
      PtzFixture& fixture = fixtures[own];
      controls[own] = fixture.DriversOwn()->GetPTZApiEx(0);
      ASSERT_NE(controls[own], nullptr);
      fixture.camera.SetAnswer([](auto& connection, auto&) { connection.Reset(); });
      fixture.sink.onDebugInfo = [&, own, first = true]() mutable {
        if (!std::exchange(first, false)) {
          return;
        }
        const u32 other = 1 - own;
        inside[own].Set();
        EXPECT_TRUE(inside[other].Wait(kWaitLimit));
        byDelete ? DeleteIPCapture(fixtures[other].driver.release()) : fixtures[other].driver->Close();
        ended[own].Set();
      };
    }
    for (IIPPTZApiEx* const control : controls) {
      EXPECT_EQ(control->StartMove(PtzLeft, 8), 1);
    }
    for (platform::Event& end : ended) {
      EXPECT_TRUE(end.Wait(kWaitLimit));
    }
    EXPECT_TRUE(RemoveOwnFile());
  }
}

TEST(CGroup1PTZComm, AsksForTheProtocolUntilItIsKnown) {
  const struct {
    std::string reply;
    u32 protocol;
    int status = 200;  // in the message
  } rows[] = {
      {"HTTP/1.1 200 OK\r\n\r\nserial_device=0\n", 0},
      {"HTTP/1.1 200 OK\r\n\r\nserial_device=3\n", 0},
      {"HTTP/1.1 200 OK\r\n\r\nserial_device=4294967297\n", 0},
      {"HTTP/1.1 200 OK\r\n\r\n<p>serial_device=2<br>1", 2},
      {"HTTP/1.1 200 OK\r\n\r\nserial_device=02x", 2},
      {"HTTP/1.1 401 No\r\n\r\nserial_device=1\n", 0, 401},
      {"", 0, 0},
  };
  for (const auto& [reply, protocol, status] : rows) {
    SCOPED_TRACE(reply);
    PtzFixture fixture("");
    fixture.camera.SetAnswer([&](auto& connection, auto&) { connection.Send(reply); });
    CGroup1PTZComm comm(fixture.handler.get());
    EXPECT_EQ(fixture.camera.requests.Text(), "");
    EXPECT_EQ(comm.GetPtzProtocol(), protocol);
    EXPECT_EQ(comm.IsPTZAvailable(nullptr), protocol != 0 ? 1U : 0U);
    std::string message = fixture.NotSent("UpdatePtzProtocol", kQuestion);
    if (status == 401) {
      message.replace(message.find("cannot send "), 12, "")
          .replace(message.find(", http"), 15, " returned error, http status=401");
    }
    EXPECT_EQ(Take(fixture.messages), status == 200 ? "" : message + message) << "asked twice, not thinned out";
    fixture.camera.SetAnswer(SerialCamera::WithBody("serial_device=1"));
    EXPECT_EQ(comm.GetPtzProtocol(), protocol != 0 ? 2U : 1U);
    EXPECT_EQ(fixture.camera.requests.Count(kQuestion), protocol != 0 ? 1U : 3U);
  }
}

// What the camera learns after the opening comes too late for the commands. A preset command goes out empty.
TEST(CGroup1PTZComm, WithoutAProtocolDropsItemsInSilence) {
  PtzFixture fixture("0");
  IIPPTZApiEx& control = fixture.Control();
  fixture.camera.SetAnswer(SerialCamera::WithBody("serial_device=1"));
  EXPECT_EQ(control.IsPTZAvailable(), 1U);
  EXPECT_EQ(control.FocusNear(1) + control.StartMove(PtzLeft, 1) + control.AddPreposition("a"), 3);
  fixture.handler.reset();
  EXPECT_EQ(fixture.camera.requests.Text(), std::string(kQuestion) + "\n/\n");
  EXPECT_EQ(fixture.messages.Text(), "");
}

TEST(CGroup1PTZComm, WritesFailuresDownAndThinsThemOut) {
  PtzFixture fixture("1");
  IIPPTZApiEx& control = fixture.Control();
  ASSERT_EQ(control.FocusNear(1), 1);
  ASSERT_EQ(control.IrisOpen(1), 1);
  ASSERT_EQ(Take(fixture.camera.requests, 2), "0180FF\n010000\n");
  fixture.camera.SetAnswer([](auto& connection, auto&) { connection.Reset(); });
  ASSERT_EQ(control.StartMove(PtzRight, 8), 1);
  const std::string path = "/serial.cgi?action=apply&port=2&write=";
  EXPECT_EQ(Take(fixture.messages, 3), fixture.NotSent("SetFocusIris", path + "0100D5") +
                                           fixture.NotSent("SetFocusIris", path + "0100D4") +
                                           fixture.NotSent("HandleWorkItem", path + "010183"));
  EXPECT_EQ(Take(fixture.camera.requests), "0100D5\n0100D4\n010183\n") << "a failure holds nothing up";

  std::string expected;
  for (int failure = 2; failure <= 17; ++failure) {  // one counter for items and presets
    EXPECT_EQ(control.SelectPreposition(0, "empty p10 "), -23);
    expected += failure != 15 && failure != 17 ? fixture.NotSent("ProcessPresetCommand", path + "410a00") : "";
  }
  EXPECT_EQ(Take(fixture.messages), expected);
}

TEST(CGroup1PTZComm, AMovementNeverWaitsForARecallAndCloseLetsItReachTheCamera) {
  platform::Event answerRecall(false, true), closing(false, true);  // outlive the camera
  std::atomic<bool> answered{false};
  PtzFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  ASSERT_EQ(control.AddPreposition("a"), 1);
  ASSERT_EQ(control.FocusNear(1), 1);
  ASSERT_EQ(Take(fixture.camera.requests, 2), "FF010003000105\nFF010100000002\n");
  fixture.camera.SetAnswer([&](auto& connection, auto& request) {
    const bool isRecall = request == "FF010007000109";
    (isRecall ? answerRecall : closing)
        .Wait(platform::Milliseconds{4'000});  // less than the request's time-out
    answered = true;
    SerialCamera::WithBody("")(connection, request);
  });
  std::thread recalling([&] { EXPECT_EQ(control.SelectPreposition(0, "a"), 1); });
  ASSERT_TRUE(fixture.camera.requests.WaitFor(""));
  EXPECT_EQ(control.StartMove(PtzLeft, 8), 1);
  EXPECT_EQ(control.ZoomIn(8), 1);
  EXPECT_FALSE(answered);
  ASSERT_TRUE(fixture.camera.requests.WaitFor("", 2));
  answerRecall.Set();
  recalling.join();
  EXPECT_EQ(Current(control), "-23") << "the movement is remembered after the recall";
  // The end has begun by then.
  std::thread camera([&] {
    std::this_thread::sleep_for(milliseconds{1000});
    closing.Set();
  });
  fixture.handler.reset();
  camera.join();
  EXPECT_EQ(fixture.camera.requests.Text(), "FF010007000109\nFF01002B00002C\nFF010004200025\n")
      << "all of the item under way, and none after it";
  EXPECT_EQ(fixture.messages.Text(), "");
}

}  // namespace
}  // namespace sarnevo
