#include "ptz/CGroup1PTZComm.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::Current;
using kolvex_test::PtzFixture;
using kolvex_test::SerialCamera;
using kolvex_test::Take;

constexpr char kQuestion[] = "/comport.cgi?action=retrieve";

TEST(CGroup1PTZComm, AsksForTheProtocolUntilItIsKnown) {
  struct Row {
    const char* name;
    const char* reply;
    u32 protocol;
  };
  constexpr Row kRows[] = {
      {"none", "HTTP/1.1 200 OK\r\n\r\nserial_device=0\n", 0},
      {"an unknown one", "HTTP/1.1 200 OK\r\n\r\nserial_device=3\n", 0},
      {"one that wraps", "HTTP/1.1 200 OK\r\n\r\nserial_device=4294967297\n", 0},
      {"an error", "HTTP/1.1 401 No\r\n\r\nserial_device=1\n", 0},
      {"no reply", "", 0},
      {"in markup", "HTTP/1.1 200 OK\r\n\r\n<p>serial_device=2<br>1", 2},
      {"leading zeros and a tail", "HTTP/1.1 200 OK\r\n\r\nserial_device=02x", 2},
  };
  for (const Row& row : kRows) {
    PtzFixture fixture("");
    fixture.camera.SetComportReply(row.reply);
    CGroup1PTZComm comm(fixture.handler.get());
    EXPECT_EQ(fixture.camera.requests.Text(), "");
    const std::string refused =
        "OnDebugInfo 1 sarnevo::CGroup1PTZComm::UpdatePtzProtocol: HTTP message to 127.0.0.1:" +
        std::to_string(fixture.camera.Port()) +
        ", message=/comport.cgi?action=retrieve returned error, http status=401\n";
    const std::string message = *row.reply == '\0' ? fixture.NotSent("UpdatePtzProtocol", kQuestion)
                                : row.name == std::string("an error") ? refused
                                                                      : "";
    EXPECT_EQ(comm.GetPtzProtocol(), row.protocol) << row.name;
    EXPECT_EQ(comm.IsPTZAvailable(nullptr), row.protocol != 0 ? 1U : 0U) << row.name;
    EXPECT_EQ(Take(fixture.messages), message + message) << row.name << ", asked twice and not thinned out";
    fixture.camera.SetComportReply("HTTP/1.1 200 OK\r\n\r\nserial_device=1");
    EXPECT_EQ(comm.GetPtzProtocol(), row.protocol != 0 ? 2U : 1U) << row.name;
    EXPECT_EQ(fixture.camera.requests.Count(kQuestion), row.protocol != 0 ? 1U : 3U) << row.name;
  }
}

// What the camera learns after the opening comes too late for the commands. A preset command goes out empty.
TEST(CGroup1PTZComm, WithoutAProtocolDropsItemsInSilence) {
  PtzFixture fixture("0");
  IIPPTZApiEx& control = fixture.Control();
  fixture.camera.SetComportReply("HTTP/1.1 200 OK\r\n\r\nserial_device=1");
  EXPECT_EQ(control.IsPTZAvailable(), 1U);
  EXPECT_EQ(control.FocusNear(1), 1);
  EXPECT_EQ(control.StartMove(PtzLeft, 1), 1);
  EXPECT_EQ(control.StopMove(), 1);
  EXPECT_EQ(control.AddPreposition("a"), 1);
  fixture.handler.reset();
  EXPECT_EQ(fixture.camera.requests.Text(), std::string(kQuestion) + "\n/\n");
  EXPECT_EQ(fixture.messages.Text(), "");
}

TEST(CGroup1PTZComm, WritesFailuresDownAndThinsThemOut) {
  PtzFixture fixture("1");
  IIPPTZApiEx& control = fixture.Control();
  control.FocusNear(1);
  control.IrisOpen(1);
  ASSERT_EQ(Take(fixture.camera.requests, 2), "0180FF\n010000\n");
  fixture.camera.SetAnswer(SerialCamera::Refuse);
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

TEST(CGroup1PTZComm, CloseLetsTheItemUnderWayReachTheCamera) {
  PtzFixture fixture("1");
  IIPPTZApiEx& control = fixture.Control();
  ASSERT_EQ(control.FocusNear(1), 1);
  ASSERT_EQ(Take(fixture.camera.requests, 1), "0180FF\n");
  platform::Event closing(false, true);
  fixture.camera.SetAnswer([&](SerialCamera::Connection& connection, const std::string& request) {
    closing.Wait(platform::Milliseconds{20'000});
    std::this_thread::sleep_for(std::chrono::milliseconds{50});  // a camera that takes its time
    SerialCamera::Ok(connection, request);
  });
  ASSERT_EQ(control.StartMove(PtzLeft, 8), 1);
  ASSERT_EQ(control.ZoomIn(8), 1);
  ASSERT_TRUE(fixture.camera.requests.WaitFor(""));
  closing.Set();
  fixture.handler.reset();
  EXPECT_EQ(fixture.camera.requests.Text(), "0100D5\n010283\n") << "all of the item, and none behind it";
  EXPECT_EQ(fixture.messages.Text(), "");
}

TEST(CGroup1PTZComm, AMovementNeverWaitsForARecall) {
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
