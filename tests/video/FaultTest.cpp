// What cameras and hosts do wrong, and what must come of it: frames again where the camera recovers, a bounded
// stop everywhere, and nothing that touches the others in the process.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <vector>

#include "support/CountAllocations.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using Connection = ScriptedCamera::Connection;

// A bad reply to one kind of request, made from the sound one.
struct BadReply {
  std::string name;
  std::string method;
  std::function<bool(Connection&, const std::string& sound)> answer;
  int group = 1;
};

BadReply Cut(const char* method, int lines, int group) {
  const auto answer = [lines](Connection& connection, const std::string& sound) {
    std::size_t end = 0;
    for (int i = 0; i < lines && end != std::string::npos; ++i) {
      end = sound.find('\n', end + 1);
    }
    connection.Send(sound.substr(0, end == std::string::npos ? end : end + 4));
    connection.Shutdown();
    return true;
  };
  return {std::string(method) + " cut behind line " + std::to_string(lines), method, answer, group};
}

BadReply Changed(const char* name, const char* method, const std::string& from, const std::string& to) {
  return {name, method, [from, to](Connection& connection, const std::string& sound) {
            return connection.Send(std::string(sound).replace(sound.find(from), from.size(), to));
          }};
}

std::vector<BadReply> BadReplies() {
  const std::string many(10'000, '7');
  std::vector<BadReply> rows{
      Changed("wrong status", "DESCRIBE", "200 OK", "503 Busy"),
      Changed("no reason", "SETUP", "200 OK", "200"),
      Changed("10,000 bytes in the status line", "DESCRIBE", "OK", many),
      Changed("10,000 bytes in a header", "DESCRIBE", "application/sdp", many),
      Changed("10,000 bytes in Transport", "SETUP", "RTP/AVP", many),
      Changed("10,000 bytes in Session", "SETUP", "12345", many),
      Changed("negative length", "DESCRIBE", "Content-Length: 5", "Content-Length: -5"),
      Changed("zero length", "DESCRIBE", "Content-Length: 5\r\n\r\nv=0\r\n", "Content-Length: 0\r\n\r\n"),
      Changed("huge length", "DESCRIBE", "Content-Length: 5", "Content-Length: 2147483647"),
      Changed("absurd length", "DESCRIBE", "Content-Length: 5", "Content-Length: 99999999999999999999"),
      Changed("no client ports", "SETUP", "client_port=", "klient_port="),
      Changed("no server ports", "SETUP", "server_port=", "zerver_port="),
      Changed("server ports 0", "SETUP", "6970-6971", "0-0"),
      Changed("no CSeq number", "PLAY", "CSeq: ", "CSeq: x"),
      Changed("zero bytes", "SETUP", "RTSP/1.0", std::string(3000, '\0') + "RTSP/1.0"),
      {"reset", "DESCRIBE", [](Connection& c, const std::string&) { return c.Reset(), c.Shutdown(), true; }},
      {"stalled", "SETUP", [](Connection& c, const std::string&) { return c.WaitForEnd(), true; }},
  };
  for (const char* method : {"DESCRIBE", "SETUP", "PLAY"}) {
    for (int lines = 0; lines < 7; ++lines) {
      rows.push_back(Cut(method, lines, 1));
      rows.push_back(Cut(method, lines, 2));
    }
  }
  return rows;
}

// A camera and a host of its own beside others, each at its own address.
struct Scene {
  Scene(int group, std::size_t number, bool speaksRtsp = true)
      : camera(group, "127.0.1." + std::to_string(number + 1), speaksRtsp) {}
  ScriptedCamera camera;
  Host host;
  std::future<milliseconds> stopping;
};
using Scenes = std::vector<std::unique_ptr<Scene>>;

// All cameras misbehave at once, each once, so that each is also a bystander of all others.
TEST(Fault, ABadReplyCostsOneAttempt) {
  const std::vector<BadReply> rows = BadReplies();
  Scenes scenes;
  for (const BadReply& row : rows) {
    auto& [camera, host, stopping] = *scenes.emplace_back(std::make_unique<Scene>(row.group, scenes.size()));
    camera.onRtsp = [&row, &camera = camera](Connection& connection, const std::string& request) {
      return request.starts_with(row.method) && camera.log.Count(row.method) == 1 &&
             row.answer(connection, camera.Reply(request));
    };
    camera.StartSending(JpegFramePacket(row.group));
    auto& capture = host.Open(camera, row.group, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const HostLog& requests = scenes[i]->camera.log;
    EXPECT_TRUE(scenes[i]->host.log.WaitFor("OnFrame", 3)) << rows[i].name << "\n" << requests.Text();
    EXPECT_EQ(requests.Count("GET"), 1U) << rows[i].name;
  }
}

TEST(Fault, StopIsBoundedInEveryState) {
  struct State {
    std::string method;
    bool drips;
  };
  std::vector<State> states{{"connect", false}};
  for (const char* method : {"GET", "DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN"}) {
    states.push_back({method, false});
    states.push_back({method, true});
  }
  const Blackhole blackhole("127.0.1.1", 554);
  Scenes scenes;
  for (const auto& [method, drips] : states) {
    auto& [camera, host, stopping] =
        *scenes.emplace_back(std::make_unique<Scene>(1, scenes.size(), method != "connect"));
    camera.onHttp =
        camera.onRtsp = [method = method, drips = drips](Connection& c, const std::string& request) {
          if (!request.starts_with(method)) {
            return false;
          }
          drips ? static_cast<void>(c.Drip(std::string(100'000, 'x'), milliseconds(20))) : c.WaitForEnd();
          return true;
        };
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG, QuickTiming(), "600000");
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  }
  for (std::size_t i = 0; i < states.size(); ++i) {
    const std::string& method = states[i].method;
    const bool isFarewell = method == "PAUSE" || method == "TEARDOWN";
    ASSERT_TRUE(scenes[i]->camera.log.WaitFor(isFarewell ? "PLAY" : method == "connect" ? "GET" : method));
  }
  std::this_thread::sleep_for(milliseconds(200));  // into the middle of what is dripping
  for (const auto& scene : scenes) {
    scene->stopping = std::async(std::launch::async, [&scene] {
      const auto begin = Clock::now();
      EXPECT_TRUE(scene->host.driver->GetVideoCapture()->StopCapture(0));
      return Since(begin);
    });
  }
  for (std::size_t i = 0; i < states.size(); ++i) {
    // Twice the receive time-out, what one receive of the farewell takes for each of its two requests, and as
    // much again for a busy machine.
    EXPECT_LT(scenes[i]->stopping.get(), milliseconds(2 * (2 * 600 + 2 * 2000))) << states[i].method;
  }
}

TEST(Fault, ACameraThatRebootsStreamsAgainAndItsNeighbourNeverStops) {
  auto camera = std::make_unique<ScriptedCamera>(1);
  ScriptedCamera neighbour(2, "127.0.0.2");
  sarnevo::ChannelTiming patient = SteadyTiming();
  patient.receiveTimeout = patient.startingReceiveTimeout = milliseconds(30'000);
  Host host;
  Host other;
  auto& capture = host.Open(*camera, 1, sarnevo::CodecMJPEG);
  auto& otherCapture = other.Open(neighbour, 2, sarnevo::CodecMJPEG, patient);
  camera->StartSending(JpegFramePacket(1));
  neighbour.StartSending(JpegFramePacket(2));
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(otherCapture.StartCapture(0, &other.sink, &other.wanted));
  ASSERT_TRUE(host.log.WaitFor("OnFrame") && other.log.WaitFor("OnFrame"));
  const std::size_t silences = other.log.Count("OnNoData");
  camera.reset();
  ASSERT_TRUE(host.log.WaitFor("OnNoData", host.log.Count("OnNoData") + 2));
  camera = std::make_unique<ScriptedCamera>(1);
  camera->StartSending(JpegFramePacket(1));
  EXPECT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 3));
  EXPECT_EQ(camera->log.Count("GET"), 0U);
  EXPECT_TRUE(other.log.WaitFor("OnFrame", other.log.Count("OnFrame") + 3));
  EXPECT_EQ(other.log.Count("OnNoData"), silences);
  EXPECT_EQ(neighbour.log.Count("PLAY"), 1U);
}

TEST(Fault, DatagramsThatAreNoPacketsDisturbNothing) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMPEG4, SteadyTiming());
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  camera.StartSending(Mpeg4KeyFramePacket());
  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  std::uint16_t sequence = camera.StopSending();
  for (std::uint8_t size = 1; size < 13; ++size) {
    camera.SendRaw(Payload(size, 0x80));
  }
  Payload datagram(20, 0);
  for (const auto& head : std::vector<Payload>{{0x40}, {0xC0}, {0x8F}, {0x90, 0, 0, 0}}) {
    std::ranges::copy(head, datagram.begin());
    datagram[14] = 0xFF;  // the extension's length
    camera.SendRaw(datagram);
  }
  camera.SendRaw(Payload(5000, 0x80));  // beyond the port's buffer: lost, and the buffer grows
  Payload big{0, 0, 1, 0xB6};
  big.resize(5000, 9);
  const std::size_t inter = host.log.Count("SetFourCC DIVI");
  camera.Send(sequence++, true, big);  // fits by now, and is in order
  EXPECT_TRUE(host.log.WaitFor("SetFourCC DIVI", inter + 1));

  // An empty datagram looks like the socket's end: reception is over, and the host hears of it until it acts.
  camera.SendRaw({});
  EXPECT_TRUE(host.log.WaitFor("OnNoData", host.log.Count("OnNoData") + 2));
  EXPECT_EQ(camera.log.Count("PLAY"), 1U);
  EXPECT_TRUE(capture.StopCapture(0));
}

TEST(Fault, WildArgumentsAreRefusedWithoutATrace) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG, SteadyTiming());
  for (const std::uint32_t channel : {16U, 17U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    std::uint32_t status = 7;
    std::uint32_t extra = 7;
    char text[] = "ab";
    EXPECT_FALSE(capture.StartCapture(channel, &host.sink, &host.wanted));
    EXPECT_FALSE(capture.StopCapture(channel));
    EXPECT_FALSE(capture.ChangeFormat(channel, &host.wanted, 40));
    EXPECT_FALSE(capture.GetChannelStatus(channel, &status, &extra, text, 0));
    EXPECT_EQ(status, 7U);
    EXPECT_EQ(extra, 0U);
    EXPECT_EQ(text[0], 'a');  // no room was given
  }
  FakeVideoParams incomplete[3];
  incomplete[0].hasFormat = incomplete[1].hasResolution = incomplete[2].hasRate = false;
  for (FakeVideoParams* params :
       {&incomplete[0], &incomplete[1], &incomplete[2], static_cast<FakeVideoParams*>(nullptr)}) {
    EXPECT_FALSE(capture.StartCapture(0, &host.sink, params));
    EXPECT_FALSE(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 9));
  }

  ASSERT_TRUE(capture.StartCapture(15, nullptr, &host.wanted));  // a channel without a sink runs
  camera.StartSending(JpegFramePacket(1));
  EXPECT_TRUE(host.log.WaitFor("ReleaseFrame", 3));
  EXPECT_FALSE(capture.ChangeFormat(15, nullptr, 40));
  EXPECT_TRUE(host.log.WaitFor("ReleaseFrame", host.log.Count("ReleaseFrame") + 3));
  EXPECT_TRUE(capture.StopCapture(15));
  EXPECT_EQ(host.log.Count("On"), 0U);
  EXPECT_EQ(camera.log.Count("PLAY"), 1U);
}

// The host takes a refused sink back and may free it, so that no later start may find it.
TEST(Fault, AStartWithoutMemoryLeavesNoChannelAndNoSinkBehind) {
  ScriptedCamera camera(1);
  Host host;
  FakeSink refused(host.log, " refused");
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  std::size_t refusals = 0;
  for (std::size_t allowed = 0;; ++allowed) {
    FailAllocationBehind(allowed);
    const bool started = capture.StartCapture(0, &refused, &host.wanted);
    const bool enough = CancelFailure();
    refusals += started ? 0 : 1;
    EXPECT_EQ(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 0), started) << allowed;
    capture.StopCapture(0);
    if (enough) {
      EXPECT_TRUE(started);
      break;
    }
  }
  EXPECT_GT(refusals, 1U);
}

}  // namespace
}  // namespace kolvex_test
