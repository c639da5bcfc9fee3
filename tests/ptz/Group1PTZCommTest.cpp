#include "ptz/CGroup1PTZComm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "ptz/PtzFakes.h"

namespace sarnevo {
namespace {

using kolvex_test::FakeDevice;
using kolvex_test::FakeLens;
using kolvex_test::SerialCamera;

// A camera with a head, and the object that drives it, not yet opened.
struct Rig {
  explicit Rig(const std::string& protocol, const PtzTiming& timing = {})
      : camera(protocol), device(camera.Port()), comm(&device, timing) {}

  // Opens, and forgets the question for the protocol.
  void Open() {
    ASSERT_EQ(comm.Open(), 1);
    camera.Requests().Take();
  }
  std::string Port() const { return std::to_string(device.port); }

  SerialCamera camera;
  FakeDevice device;
  FakeLens lens;
  CGroup1PTZComm comm;
};

TEST(CGroup1PTZComm, SendsPlainRequestsWithCredentials) {
  Rig rig("1");
  ASSERT_EQ(rig.comm.GetPtzProtocol(), 1U);
  EXPECT_EQ(rig.camera.Requests().Take(), "GET /comport.cgi?action=retrieve HTTP/1.1\n");
  EXPECT_NE(rig.camera.LastHead().find("\r\nAuthorization: Basic cm9vdDpwYXNz\r\n"), std::string::npos);
  ASSERT_EQ(rig.comm.Open(), 1);
  ASSERT_EQ(rig.comm.StartMove(&rig.lens, PtzRight, 8), 1);
  EXPECT_EQ(rig.camera.Requests().WaitFor(1), "010183\n") << "opening doesn't ask for a known protocol again";
  EXPECT_NE(rig.camera.LastHead().find("\r\nAuthorization: Basic cm9vdDpwYXNz\r\n"), std::string::npos);
}

// The lens goes back to automatic in front of the next movement, focus first.
TEST(CGroup1PTZComm, KeepsTheLensAutomaticWhileTheHeadMoves) {
  struct Step {
    const char* name;
    i32 (*call)(CGroup1PTZComm&, IIPParams*);
    const char* threeByte;
    const char* pelcoD;
    const char* manual;  // focus, iris
  };
  using Comm = CGroup1PTZComm;
  constexpr Step kSteps[] = {
      {"a move of an automatic lens", [](Comm& c, IIPParams* p) { return c.StartMove(p, 0, 1); }, "010280",
       "FF010004040009", "00"},
      {"focus near", [](Comm& c, IIPParams* p) { return c.Focus(p, 1, 1); }, "0180FF", "FF010100000002", "10"},
      {"focus far", [](Comm& c, IIPParams* p) { return c.Focus(p, 0, 1); }, "0140FF", "FF010080000081", "10"},
      {"focus stop", [](Comm& c, IIPParams* p) { return c.Focus(p, 1, 0); }, "0100FF", "FF010027000028", "10"},
      {"iris open keeps the focus manual", [](Comm& c, IIPParams* p) { return c.Iris(p, 1, 1); }, "010000",
       "FF010200000003", "11"},
      {"iris stop", [](Comm& c, IIPParams* p) { return c.Iris(p, 1, 0); }, "0100FF", "FF010000000001", "11"},
      {"focus near keeps the iris manual", [](Comm& c, IIPParams* p) { return c.Focus(p, 1, 1); }, "0180FF",
       "FF010100000002", "11"},
      {"a stop changes nothing of it", [](Comm& c, IIPParams* p) { return c.StopMove(p); }, "0100FF",
       "FF010000000001", "11"},
      {"a zoom puts both back", [](Comm& c, IIPParams* p) { return c.StartMove(p, 8, 1); },
       "0100D5\n0100D4\n0110FF", "FF01002B00002C\nFF01002D00002E\nFF010020000021", "00"},
      {"iris close", [](Comm& c, IIPParams* p) { return c.Iris(p, 0, 1); }, "010001", "FF010400000005", "01"},
      {"a move puts the iris back", [](Comm& c, IIPParams* p) { return c.StartMove(p, 4, 16); },
       "0100D4\n0106bf", "FF01002D00002E\nFF01000C40408D", "00"},
      {"focus far", [](Comm& c, IIPParams* p) { return c.Focus(p, 0, 9); }, "0140FF", "FF010080000081", "10"},
      {"a move in no direction puts the focus back",
       [](Comm& c, IIPParams* p) { return c.StartMove(p, 12, 5); }, "0100D5\n01",
       "FF01002B00002C\nFF010000000001", "00"},
      {"the same again goes out again", [](Comm& c, IIPParams* p) { return c.StartMove(p, 12, 5); }, "01",
       "FF010000000001", "00"},
  };
  for (const bool pelcoD : {false, true}) {
    Rig rig(pelcoD ? "2" : "1");
    rig.Open();
    for (const Step& step : kSteps) {
      const std::string expected = std::string(pelcoD ? step.pelcoD : step.threeByte) + "\n";
      ASSERT_EQ(step.call(rig.comm, &rig.lens), 1);
      const auto lines = static_cast<std::size_t>(std::count(expected.begin(), expected.end(), '\n'));
      EXPECT_EQ(rig.camera.Requests().WaitFor(lines), expected) << step.name;
      EXPECT_EQ(std::to_string(rig.lens.focus) + std::to_string(rig.lens.iris), step.manual) << step.name;
      rig.camera.Requests().Take();
    }
    EXPECT_EQ(rig.device.messages.Text(), "");
  }
}

TEST(CGroup1PTZComm, CommandsPresetsOnTheCallersThread) {
  struct Step {
    const char* name;
    bool (*call)(IPrepositionComm&);
    const char* threeByte;
    const char* pelcoD;
  };
  using Comm = IPrepositionComm;
  constexpr Step kSteps[] = {
      {"store", [](Comm& c) { return c.StorePreset(0); }, "810570", "FF010003000105"},
      {"store in the last slot of Pelco-D", [](Comm& c) { return c.StorePreset(31); }, "810570",
       "FF010003002024"},
      {"go to", [](Comm& c) { return c.GotoPreset(10, 0); }, "410a00", "FF01000700 0B13"},
      {"the option doesn't matter", [](Comm& c) { return c.GotoPreset(19, 77); }, "411300", "FF01000700141C"},
      {"delete", [](Comm& c) { return c.DeletePreset(5); }, "01FFF5", "FF01000500060C"},
  };
  for (const bool pelcoD : {false, true}) {
    Rig rig(pelcoD ? "2" : "1");
    rig.Open();
    // Any status counts as done: the camera has got the bytes.
    rig.camera.SetAnswer(
        [](SerialCamera::Connection& c, const std::string&) { c.Send("HTTP/1.1 500 Error\r\n\r\n"); });
    for (const Step& step : kSteps) {
      std::string expected = pelcoD ? step.pelcoD : step.threeByte;
      std::erase(expected, ' ');
      EXPECT_TRUE(step.call(rig.comm)) << step.name;
      EXPECT_EQ(rig.camera.Requests().Take(), expected + "\n") << step.name;
    }
    EXPECT_EQ(rig.device.messages.Text(), "");
  }
}

TEST(CGroup1PTZComm, LeavesOutWhatTheCameraDoesNotKnow) {
  Rig rig("1");
  rig.Open();
  rig.lens.focus = 1;
  EXPECT_EQ(rig.comm.AreaZoom(&rig.lens, 1, 2, 3, 4), 1);
  EXPECT_EQ(rig.comm.Center(&rig.lens, 1, 2, 3), 1);
  EXPECT_EQ(rig.comm.Unzoom(&rig.lens, 1), 1);
  EXPECT_EQ(rig.comm.StopMove(&rig.lens), 1);
  EXPECT_EQ(rig.camera.Requests().WaitFor(1), "0100FF\n");
  EXPECT_EQ(rig.lens.focus, 1);
}

TEST(CGroup1PTZComm, WithoutAProtocolDropsItemsInSilence) {
  Rig rig("0");
  rig.Open();
  rig.lens.focus = rig.lens.iris = 1;
  EXPECT_EQ(rig.comm.StartMove(&rig.lens, PtzLeft, 1), 1);
  // The preset command goes out with an empty path, and the protocol that the camera learns meanwhile comes
  // too late for the commands.
  rig.camera.SetComportReply("HTTP/1.1 200 OK\r\n\r\nserial_device=1");
  EXPECT_EQ(rig.comm.IsPTZAvailable(nullptr), 1U);
  EXPECT_TRUE(rig.comm.StorePreset(3));
  EXPECT_EQ(rig.comm.StopMove(&rig.lens), 1);
  EXPECT_EQ(rig.comm.Focus(&rig.lens, 1, 1), 1);
  while (rig.lens.focus != 0 || rig.lens.iris != 1) {
    std::this_thread::yield();  // what the items change shows that they were handled
  }
  EXPECT_EQ(rig.camera.Requests().Text(), "GET /comport.cgi?action=retrieve HTTP/1.1\nGET / HTTP/1.1\n");
  EXPECT_EQ(rig.device.messages.Text(), "");
}

TEST(CGroup1PTZComm, AsksForTheProtocolUntilItIsKnown) {
  struct Row {
    const char* name;
    const char* reply;
    u32 protocol;
    const char* message;  // behind the operation; {} is the port
  };
  constexpr Row kRows[] = {
      {"none", "HTTP/1.1 200 OK\r\n\r\nserial_device=0\n", 0, ""},
      {"an unknown one", "HTTP/1.1 200 OK\r\n\r\nserial_device=3\n", 0, ""},
      {"one that wraps", "HTTP/1.1 200 OK\r\n\r\nserial_device=4294967297\n", 0, ""},
      {"no number", "HTTP/1.1 200 OK\r\n\r\nserial_device=x1\n", 0, ""},
      {"a negative one", "HTTP/1.1 200 OK\r\n\r\nserial_device=-1\n", 0, ""},
      {"no key", "HTTP/1.1 200 OK\r\n\r\nserial_baud=1\n", 0, ""},
      {"no body", "HTTP/1.1 200 OK\r\n\r\n", 0, ""},
      {"an error", "HTTP/1.1 401 No\r\n\r\nserial_device=1\n", 0,
       "HTTP message to 127.0.0.1:{}, message=/comport.cgi?action=retrieve returned error, http status=401"},
      {"no reply", "", 0,
       "cannot send HTTP message to 127.0.0.1:{}, message=/comport.cgi?action=retrieve, http status=0"},
      {"Pelco-D", "HTTP/1.1 200 OK\r\n\r\na=1\r\nserial_device=2<br>", 2, ""},
      {"leading zeros and a tail", "HTTP/1.1 200 OK\r\n\r\nserial_device=01x", 1, ""},
  };
  for (const Row& row : kRows) {
    Rig rig("0");
    rig.camera.SetComportReply(row.reply);
    std::string message = row.message;
    if (!message.empty()) {
      message = "1 sarnevo::CGroup1PTZComm::UpdatePtzProtocol: " + message + "\n";
      message.replace(message.find("{}"), 2, rig.Port());
    }
    EXPECT_EQ(rig.comm.GetPtzProtocol(), row.protocol) << row.name;
    EXPECT_EQ(rig.device.messages.Take(), message) << row.name;
    EXPECT_EQ(rig.comm.IsPTZAvailable(&rig.lens), row.protocol != 0 ? 1U : 0U) << row.name;
    EXPECT_EQ(rig.device.messages.Take(), message) << row.name << ", asked again and not thinned out";
    EXPECT_EQ(rig.camera.Requests().Count(), row.protocol != 0 ? 1U : 2U) << row.name;

    rig.camera.SetComportReply("HTTP/1.1 200 OK\r\n\r\nserial_device=1");
    EXPECT_EQ(rig.comm.GetPtzProtocol(), row.protocol != 0 ? row.protocol : 1) << row.name;
  }
}

TEST(CGroup1PTZComm, WritesFailuresDownAndThinsThemOut) {
  Rig rig("1");
  rig.Open();
  rig.camera.SetAnswer(SerialCamera::Refuse);
  rig.lens.focus = rig.lens.iris = 1;
  ASSERT_EQ(rig.comm.StartMove(&rig.lens, PtzRight, 8), 1);
  const auto message = [&](const char* operation, const char* write) {
    return std::string("1 sarnevo::CGroup1PTZComm::") + operation +
           ": cannot send HTTP message to 127.0.0.1:" + rig.Port() +
           ", message=/serial.cgi?action=apply&port=2&write=" + write + ", http status=0\n";
  };
  EXPECT_EQ(rig.device.messages.WaitFor(3), message("SetFocusIris", "0100D5") +
                                                message("SetFocusIris", "0100D4") +
                                                message("HandleWorkItem", "010183"));
  EXPECT_EQ(rig.camera.Requests().Text(), "0100D5\n0100D4\n010183\n") << "a failure holds nothing up";
  EXPECT_EQ(std::to_string(rig.lens.focus) + std::to_string(rig.lens.iris), "00");
  rig.device.messages.Take();

  std::string expected;
  for (int failure = 2; failure <= 17; ++failure) {  // one counter for items and presets
    EXPECT_FALSE(rig.comm.GotoPreset(1, 0));
    expected += failure != 15 && failure != 17 ? message("ProcessPresetCommand", "410100") : "";
  }
  EXPECT_EQ(rig.device.messages.Take(), expected);
}

TEST(CGroup1PTZComm, AnswersForItsCapabilities) {
  FakeDevice device;
  CGroup1PTZComm comm(&device);
  CPtzCapabilities record;
  std::fill(std::begin(record.words), std::end(record.words), 99);
  EXPECT_EQ(comm.GetCapabilities(&record), 1);
  constexpr u32 kExpected[] = {99, 1, 1, 1, 1, 1, 0, 99, 99, 0, 0, 0, 0, 0};
  EXPECT_TRUE(std::equal(std::begin(record.words), std::end(record.words), kExpected));
}

}  // namespace
}  // namespace sarnevo
