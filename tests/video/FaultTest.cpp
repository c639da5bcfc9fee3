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

std::string OwnAddress(std::size_t number) { return "127.0.1." + std::to_string(number + 1); }

std::string With(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// A bad reply to one kind of request; the text is the sound reply.
struct BadReply {
  std::string name;
  std::string method;
  std::function<bool(Connection&, const std::string& sound)> answer;
};

std::vector<BadReply> CutReplies(int group) {
  std::vector<BadReply> rows;
  for (const char* method : {"DESCRIBE", "SETUP", "PLAY"}) {
    for (int lines = 0; lines < 7; ++lines) {
      rows.push_back({std::string(method) + " of group " + std::to_string(group) + " cut in line " +
                          std::to_string(lines + 1),
                      method, [lines](Connection& connection, const std::string& sound) {
                        std::size_t end = 0;
                        for (int i = 0; i < lines && end != std::string::npos; ++i) {
                          end = sound.find('\n', end + 1);
                        }
                        connection.Send(sound.substr(0, end == std::string::npos ? end : end + 4));
                        connection.Shutdown();
                        return true;
                      }});
    }
  }
  return rows;
}

BadReply Changed(const char* name, const char* method, const char* from, std::string to) {
  return {name, method, [from, to = std::move(to)](Connection& connection, const std::string& sound) {
            connection.Send(With(sound, from, to));
            return true;
          }};
}

std::vector<BadReply> WrongReplies() {
  return {
      Changed("wrong status", "DESCRIBE", "200 OK", "503 Busy"),
      Changed("no reason", "SETUP", "200 OK", "200"),
      Changed("10,000 bytes in the status line", "DESCRIBE", "OK", std::string(10'000, 'O')),
      Changed("10,000 bytes in a header", "DESCRIBE", "application/sdp", std::string(10'000, 'a')),
      Changed("10,000 bytes in Transport", "SETUP", "RTP/AVP", std::string(10'000, 'T')),
      Changed("10,000 bytes in Session", "SETUP", "12345", std::string(10'000, '7')),
      Changed("negative length", "DESCRIBE", "Content-Length: 5", "Content-Length: -5"),
      Changed("zero length", "DESCRIBE", "Content-Length: 5\r\n\r\nv=0\r\n", "Content-Length: 0\r\n\r\n"),
      Changed("huge length", "DESCRIBE", "Content-Length: 5", "Content-Length: 2147483647"),
      Changed("absurd length", "DESCRIBE", "Content-Length: 5", "Content-Length: 99999999999999999999"),
      Changed("more length than body", "DESCRIBE", "Content-Length: 5", "Content-Length: 5000"),
      Changed("no client ports", "SETUP", "client_port=", "klient_port="),
      Changed("no server ports", "SETUP", "server_port=", "zerver_port="),
      Changed("server ports 0", "SETUP", "6970-6971", "0-0"),
      Changed("no CSeq number", "PLAY", "CSeq: ", "CSeq: x"),
      Changed("nothing but blank lines", "PLAY", "RTSP/1.0", "\r\n\r\n\r\nRTSP/1.0"),
      {"zero bytes", "SETUP",
       [](Connection& connection, const std::string& sound) {
         connection.Send(std::string(3000, '\0') + sound);
         return true;
       }},
      {"reset", "DESCRIBE",
       [](Connection& connection, const std::string&) {
         connection.Reset();
         connection.Shutdown();
         return true;
       }},
      {"stalled", "SETUP",
       [](Connection& connection, const std::string&) {
         connection.WaitForEnd();
         return true;
       }},
  };
}

// All cameras misbehave at once, each once, so that each is also a bystander of all others.
TEST(Fault, ABadReplyCostsOneAttempt) {
  std::vector<BadReply> rows = WrongReplies();
  std::vector<int> groups(rows.size(), 1);
  for (const int group : {1, 2}) {
    for (BadReply& row : CutReplies(group)) {
      rows.push_back(std::move(row));
      groups.push_back(group);
    }
  }
  struct Scene {
    std::unique_ptr<ScriptedCamera> camera;
    std::unique_ptr<Host> host = std::make_unique<Host>();
  };
  std::vector<Scene> scenes(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    auto& [camera, host] = scenes[i];
    camera = std::make_unique<ScriptedCamera>(groups[i], OwnAddress(i));
    camera->onRtsp = [&row = rows[i], &camera = *camera](Connection& connection, const std::string& request) {
      return request.starts_with(row.method) && camera.log.Count(row.method) == 1 &&
             row.answer(connection, camera.Reply(request));
    };
    camera->StartSending(JpegFramePacket(groups[i]));
    ASSERT_TRUE(
        host->Open(*camera, groups[i], sarnevo::CodecMJPEG).StartCapture(0, &host->sink, &host->wanted));
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_TRUE(scenes[i].host->log.WaitFor("OnFrame", 3)) << rows[i].name << "\n"
                                                           << scenes[i].camera->log.Text();
    EXPECT_EQ(scenes[i].camera->log.Count("GET"), 1U) << rows[i].name;
  }
}

TEST(Fault, StopIsBoundedInEveryState) {
  const auto stall = [](const char* method) {
    return [method](Connection& connection, const std::string& request) {
      if (request.starts_with(method)) {
        connection.WaitForEnd();
      }
      return request.starts_with(method);
    };
  };
  const auto drip = [](const char* method) {
    return [method](Connection& connection, const std::string& request) {
      return request.starts_with(method) && connection.Drip(std::string(100'000, 'x'), milliseconds(20));
    };
  };
  const struct {
    const char* name;
    ScriptedCamera::Script onHttp;
    ScriptedCamera::Script onRtsp;
    const char* reached;  // in the camera's log
    bool rtspNeverConnects = false;
  } rows[] = {
      {"configuration stalled", stall("GET"), {}, "GET"},
      {"configuration dripping", drip("GET"), {}, "GET"},
      {"connecting", {}, {}, "GET", true},
      {"DESCRIBE stalled", {}, stall("DESCRIBE"), "DESCRIBE"},
      {"DESCRIBE dripping", {}, drip("DESCRIBE"), "DESCRIBE"},
      {"SETUP stalled", {}, stall("SETUP"), "SETUP"},
      {"SETUP dripping", {}, drip("SETUP"), "SETUP"},
      {"PLAY dripping", {}, drip("PLAY"), "PLAY"},
      {"PAUSE stalled", {}, stall("PAUSE"), "PLAY"},
      {"PAUSE dripping", {}, drip("PAUSE"), "PLAY"},
      {"TEARDOWN dripping", {}, drip("TEARDOWN"), "PLAY"},
  };
  struct Scene {
    std::unique_ptr<ScriptedCamera> camera;
    std::unique_ptr<Blackhole> blackhole;
    std::unique_ptr<Host> host = std::make_unique<Host>();
    std::future<milliseconds> stopping;
  };
  std::vector<Scene> scenes(std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    Scene& scene = scenes[i];
    scene.camera = std::make_unique<ScriptedCamera>(1, OwnAddress(i), !rows[i].rtspNeverConnects);
    scene.camera->onHttp = rows[i].onHttp;
    scene.camera->onRtsp = rows[i].onRtsp;
    if (rows[i].rtspNeverConnects) {
      scene.blackhole = std::make_unique<Blackhole>(scene.camera->Address(), std::uint16_t{554});
    }
    auto& capture = scene.host->Open(*scene.camera, 1, sarnevo::CodecMJPEG, QuickTiming(), "600000");
    ASSERT_TRUE(capture.StartCapture(0, &scene.host->sink, &scene.host->wanted));
  }
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    ASSERT_TRUE(scenes[i].camera->log.WaitFor(rows[i].reached)) << rows[i].name;
  }
  std::this_thread::sleep_for(milliseconds(200));  // into the middle of what is dripping
  for (Scene& scene : scenes) {
    scene.stopping = std::async(std::launch::async, [&scene] {
      const auto begin = Clock::now();
      EXPECT_TRUE(scene.host->driver->GetVideoCapture()->StopCapture(0));
      return Since(begin);
    });
  }
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    // Twice the receive time-out, then what one receive of the farewell takes for each of its two requests.
    EXPECT_LT(scenes[i].stopping.get(), milliseconds(2 * 600 + 2 * 2000 + 2000)) << rows[i].name;
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
  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  ASSERT_TRUE(other.log.WaitFor("OnFrame"));
  const std::size_t silences = other.log.Count("OnNoData");
  const std::size_t hostSilences = host.log.Count("OnNoData");
  camera.reset();
  ASSERT_TRUE(host.log.WaitFor("OnNoData", hostSilences + 2));
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
  FakeVideoParams noFormat;
  noFormat.hasFormat = false;
  FakeVideoParams noResolution;
  noResolution.hasResolution = false;
  FakeVideoParams noRate;
  noRate.hasRate = false;
  for (FakeVideoParams* params : {static_cast<FakeVideoParams*>(nullptr), &noFormat, &noResolution, &noRate}) {
    EXPECT_FALSE(capture.StartCapture(0, &host.sink, params));
    EXPECT_FALSE(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 9));
  }
  EXPECT_EQ(capture.Reserved5(), 0U);
  EXPECT_FALSE(capture.Reserved7(1, 2, 3) || capture.Reserved8(1, 2, 3));

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
