#include "ptz/CGroup1PTZComm.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/Event.h"
#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::PtzFixture;
using kolvex_test::SerialCamera;
using kolvex_test::Take;

constexpr char kQuestion[] = "/comport.cgi?action=retrieve";

TEST(CGroup1PTZComm, AsksForTheProtocolUntilItIsKnown) {
  struct Row {
    const char* name;
    const char* reply;
    u32 protocol;
    const char* message = "";  // in front of and behind the address
    const char* tail = "";
  };
  constexpr Row kRows[] = {
      {"none", "HTTP/1.1 200 OK\r\n\r\nserial_device=0\n", 0},
      {"an unknown one", "HTTP/1.1 200 OK\r\n\r\nserial_device=3\n", 0},
      {"one that wraps", "HTTP/1.1 200 OK\r\n\r\nserial_device=4294967297\n", 0},
      {"a negative one", "HTTP/1.1 200 OK\r\n\r\nserial_device=-1\n", 0},
      {"no key", "HTTP/1.1 200 OK\r\n\r\nserial_baud=1\n", 0},
      {"no body", "HTTP/1.1 200 OK\r\n\r\n", 0},
      {"an error", "HTTP/1.1 401 No\r\n\r\nserial_device=1\n", 0, "HTTP message to ",
       ", message=/comport.cgi?action=retrieve returned error, http status=401"},
      {"no reply", "", 0, "cannot send HTTP message to ",
       ", message=/comport.cgi?action=retrieve, http status=0"},
      {"among others", "HTTP/1.1 200 OK\r\n\r\na=9\r\nserial_device=2\r\nb=1", 2},
      {"in markup", "HTTP/1.1 200 OK\r\n\r\n<p>serial_device=2<br>1", 2},
      {"the first of two", "HTTP/1.1 200 OK\r\n\r\nserial_device=2\nserial_device=1", 2},
      {"a separator further on", "HTTP/1.1 200 OK\r\n\r\nserial_device\nother=2\n", 2},
      {"leading zeros and a tail", "HTTP/1.1 200 OK\r\n\r\nserial_device=02x", 2},
  };
  for (const Row& row : kRows) {
    PtzFixture fixture("");
    fixture.camera.SetComportReply(row.reply);
    CGroup1PTZComm comm(fixture.handler.get());
    EXPECT_EQ(fixture.camera.requests.Text(), "");
    const std::string message =
        *row.message == '\0'
            ? ""
            : std::string("OnDebugInfo 1 sarnevo::CGroup1PTZComm::UpdatePtzProtocol: ") + row.message +
                  "127.0.0.1:" + std::to_string(fixture.camera.Port()) + row.tail + "\n";
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
  ASSERT_EQ(control.StartMove(PtzRight, 8), 1);
  EXPECT_EQ(Take(fixture.messages, 1), fixture.NotSent("HandleWorkItem", path + "010183"));
  EXPECT_EQ(Take(fixture.camera.requests), "010183\n") << "the lens counts as automatic";

  std::string expected;
  for (int failure = 3; failure <= 17; ++failure) {  // one counter for items and presets
    EXPECT_EQ(control.SelectPreposition(0, "empty p10 "), -23);
    expected += failure != 15 && failure != 17 ? fixture.NotSent("ProcessPresetCommand", path + "410a00") : "";
  }
  EXPECT_EQ(Take(fixture.messages), expected);

  // Any status counts as done: the camera has got the bytes.
  fixture.camera.SetAnswer(
      [](SerialCamera::Connection& c, const std::string&) { c.Send("HTTP/1.1 500 Error\r\n\r\n"); });
  EXPECT_EQ(control.SelectPreposition(0, "empty p10 "), 1);
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

// No time-out ever ends such a reply, and a stop command waits behind it.
TEST(CGroup1PTZComm, EndsADrippingReplyByItself) {
  PtzFixture fixture("1");
  fixture.camera.SetAnswer(SerialCamera::Drip);
  CGroup1PTZComm comm(fixture.handler.get(), {.requestTimeout = 60'000, .requestLimit = 500});
  EXPECT_FALSE(comm.StorePreset(1));
}

}  // namespace
}  // namespace sarnevo
