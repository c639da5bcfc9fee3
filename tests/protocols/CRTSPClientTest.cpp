#include "protocols/CRTSPClient.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "support/HostLog.h"
#include "support/ScriptedServer.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using kolvex_test::Blackhole;
using kolvex_test::HostLog;
using kolvex_test::ScriptedServer;
using Connection = ScriptedServer::Connection;

constexpr u16 kPort = 554;
constexpr const char* kCamera = "127.0.0.1";

// Short where a test waits for a time-out to pass, else long enough for a busy machine.
ProtocolTimes Times(platform::Milliseconds receive = 10s) {
  ProtocolTimes times;
  times.rtspReceive = receive;
  times.rtspConnectStep = 10ms;
  return times;
}

const std::string kTransport = "Transport: RTP/AVP;unicast;client_port=3556-3557;server_port=6000-6001\r\n";

// Replies as cameras of either group give them; group 2 has a line more behind CSeq.
std::string Head(int group, int cseq) {
  return "RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(cseq) + "\r\n" + (group == 2 ? "Server: Camera\r\n" : "");
}
std::string Described(int group) {
  return Head(group, 1) +
         "Content-Base: rtsp://c/\r\nContent-Type: application/sdp\r\nContent-Length: 9\r\n\r\nv=0\r\nm=0\n";
}
std::string Prepared(int group, int cseq = 2) {
  return Head(group, cseq) + kTransport + "Session: 1234;timeout=60\r\n\r\n";
}
std::string Played(int group, int cseq = 3) { return Head(group, cseq) + "Session: 1234\r\n\r\n"; }

// One letter for each operation: Describe, Setup, Play, pAuse, Teardown; in the result small when it failed.
std::string Perform(CRTSPClient& client, const std::string& operations, int group) {
  const bool path = group == 1;
  std::string results;
  for (const char letter : operations) {
    const bool done = letter == 'D'   ? client.Describe(path)
                      : letter == 'S' ? client.Setup(3556, 3557, path)
                      : letter == 'P' ? client.Play(path)
                      : letter == 'A' ? client.Pause(path)
                                      : client.Teardown(path);
    results += static_cast<char>(done ? letter : letter + 'a' - 'A');
  }
  return results;
}

// A camera that plays a script to the one who connects and logs each request.
class Camera {
 public:
  using Step = std::function<void(Connection&)>;

  /// Does a step behind each request. Then closes, or reads on in silence.
  explicit Camera(std::vector<Step> steps, bool closesAtEnd = false)
      : server_(
            [this, steps = std::move(steps), closesAtEnd](Connection& connection) {
              for (const Step& step : steps) {
                if (!ReadRequest(connection)) {
                  return;
                }
                step(connection);
              }
              while (!closesAtEnd && ReadRequest(connection)) {
              }
            },
            kCamera, kPort) {}

  const HostLog& Requests() const { return requests_; }

 private:
  bool ReadRequest(Connection& connection) {
    const std::string request = connection.ReadHead();
    if (!request.empty()) {
      requests_.Add(request);
    }
    return request.ends_with("\r\n\r\n");
  }

  HostLog requests_;
  ScriptedServer server_;
};

Camera::Step Send(std::string reply) {
  return [reply = std::move(reply)](Connection& connection) { connection.Send(reply); };
}

struct Dialogue {
  std::string results;
  std::string requests;  // a line feed behind each
};

// Answers each request with the next reply.
Dialogue Talk(const std::string& operations, int group, const std::vector<std::string>& replies,
              const ProtocolTimes& times = Times(), bool closesAtEnd = false) {
  std::vector<Camera::Step> steps;
  for (const std::string& reply : replies) {
    steps.push_back(Send(reply));
  }
  const Camera camera(std::move(steps), closesAtEnd);
  CRTSPClient client(times);
  EXPECT_TRUE(client.Connect(kCamera, kPort, 5000));
  Dialogue dialogue{Perform(client, operations, group), {}};
  client.Disconnect();
  camera.Requests().WaitFor("", operations.size(), 20ms);
  dialogue.requests = camera.Requests().Text();
  return dialogue;
}

TEST(CRTSPClient, AWholeStreamOfEitherGroupByteForByte) {
  for (const int group : {1, 2}) {
    const std::string url = group == 1 ? "rtsp://127.0.0.1:554/object.sdp" : "rtsp://127.0.0.1:554/";
    const std::string track = group == 1 ? url + "/trackID=0" : url;
    const std::string session = "Session: 1234;timeout=60\r\n\r\n\n";
    const Dialogue dialogue = Talk(
        "DSPAT", group, {Described(group), Prepared(group), Played(group), Played(group, 4), Played(group, 5)});
    EXPECT_EQ(dialogue.results, "DSPAT");
    EXPECT_EQ(dialogue.requests, "DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\n\r\n\n" +  //
                                     "SETUP " + track + " RTSP/1.0\r\nCSeq: 2\r\n" +
                                     "Transport: RTP/AVP;unicast;client_port=3556-3557\r\n\r\n\n" + "PLAY " +
                                     url + " RTSP/1.0\r\nCSeq: 3\r\n" + session +  //
                                     "PAUSE " + url + " RTSP/1.0\r\nCSeq: 4\r\n" + session + "TEARDOWN " + url +
                                     " RTSP/1.0\r\nCSeq: 5\r\n" + session);
  }
}

TEST(CRTSPClient, RepliesAreReadByPosition) {
  const std::string ok = "RTSP/1.0 200 OK\r\n";
  const std::string body = "RTSP/1.0 200 OK\r\nCSeq: 1\r\na: b\r\nc: d\r\n";
  const std::string longLine = "X: " + std::string(10'000, 'x') + "\r\n";
  const std::string longDescribed = ok + "CSeq: 1\r\n" + longLine + longLine + longLine + "L: 0\r\n" + longLine;
  const std::string longPrepared = ok + "CSeq: 2\r\n" + longLine + kTransport + longLine + longLine;
  const std::string missingSession = Head(1, 2) + "Transport: x\r\nSession: 1\r\n";
  const auto transport = [](const std::string& ports) {
    return Head(1, 2) + "Transport: RTP/AVP;unicast;" + ports + "\r\nSession: 1\r\n\r\n";
  };
  const struct {
    const char* name;
    std::string operations;
    int group;
    std::vector<std::string> replies;
    std::string results;
  } kCases[] = {
      {"one blank line in front is skipped", "DS", 1, {"\r\n" + Described(1), Prepared(1)}, "DS"},
      {"two blank lines are not", "D", 1, {"\r\n\r\n" + Described(1)}, "d"},
      {"no number behind CSeq", "S", 1, {ok + "CSeq:\r\n" + kTransport + "Session: 1\r\n\r\n"}, "s"},
      {"200 anywhere in the line", "S", 1, {"RTSP/1.0 404 see200" + Prepared(1).substr(15)}, "S"},
      {"a version of 15 characters", "S", 1, {"ABCDEFGHIJKLMNO" + Prepared(1).substr(8)}, "s"},
      {"a port of 0", "S", 1, {transport("client_port=3556-0;server_port=1-2")}, "s"},
      {"no client's ports", "S", 1, {transport("server_port=1-2")}, "s"},
      {"other addresses", "S", 1, {transport("client_port=1-2;server_port=3-4;source=192.0.2.1")}, "S"},
      {"no camera's ports", "S", 1, {transport("client_port=1-2;")}, "s"},
      {"half of the camera's ports", "S", 1, {transport("client_port=1-2;server_port=6000-")}, "s"},
      {"a line more as for group 2", "S", 1, {Prepared(2)}, "s"},
      {"a line less as for group 1", "S", 2, {Prepared(1)}, "s"},
      {"Session in front of Transport", "S", 1, {Head(1, 2) + "Session: 1\r\n" + kTransport + "\r\n"}, "s"},
      {"an empty Session is none of our business", "S", 1, {Head(1, 2) + kTransport + "Session:\r\n\r\n"}, "S"},
      {"no TEARDOWN after a failed SETUP", "SPT", 1, {missingSession, Played(1)}, "sPt"},
      {"what stands behind a zero byte doesn't count", "S", 1, {"RTSP/1.0 \0 200 OK\r\n"s}, "s"},
      {"long lines everywhere", "DSP", 2, {longDescribed, longPrepared, Played(2)}, "DSP"},
      {"no length counts as the last one, 0", "DS", 1, {body + "L: none\r\n\r\n", Prepared(1)}, "DS"},
      {"a negative length", "D", 1, {body + "L: -1\r\n\r\n"}, "d"},
      {"a length beyond belief", "D", 1, {body + "L: 65537\r\n\r\n"}, "d"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(Talk(each.operations, each.group, each.replies).results, each.results);
  }
}

TEST(CRTSPClient, TheCamerasCountAndSessionGoBack) {
  const Dialogue round = Talk("SP", 2, {Prepared(2, 2147483647), Played(2)});
  EXPECT_NE(round.requests.find("\r\nCSeq: -2147483648\r\n"), std::string::npos);
  // 255 characters of a line count, three of which are the name.
  const Dialogue session =
      Talk("SP", 1, {Head(1, 7) + kTransport + "S: " + std::string(300, 's') + "\r\n\r\n", Played(1)});
  EXPECT_NE(session.requests.find("\r\nCSeq: 8\r\nSession: " + std::string(252, 's') + "\r\n\r\n"),
            std::string::npos);
}

TEST(CRTSPClient, ACutReplyCountsAsFarAsItCame) {
  const std::string whole = Prepared(1);
  // The second server port's first digit is the last thing that must be there when the camera closes; when it
  // falls silent, something of the blank line too.
  const std::size_t ports = whole.find("6001") + 1;
  const std::size_t blankLine = whole.size() - 2;
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    ASSERT_EQ(Talk("S", 1, {whole.substr(0, length)}, Times(), true).results, length >= ports ? "S" : "s")
        << "closed behind " << whole.substr(0, length);
  }
  for (const std::size_t length : {std::size_t{0}, ports, blankLine, blankLine + 1}) {
    ASSERT_EQ(Talk("S", 1, {whole.substr(0, length)}, Times(40ms)).results, length > blankLine ? "S" : "s")
        << "silent behind " << whole.substr(0, length);
  }
  // A body of which something came is whole at a time-out.
  const std::string described = Described(1);
  EXPECT_EQ(Talk("D", 1, {described.substr(0, described.size() - 9)}, Times(40ms)).results, "d");
  EXPECT_EQ(Talk("D", 1, {described.substr(0, described.size() - 8)}, Times(40ms)).results, "D");
}

TEST(CRTSPClient, EndlessRepliesAreGivenUp) {
  const auto play = [](const Camera::Step& reply, const ProtocolTimes& times = Times()) {
    const Camera camera({reply, Send(Prepared(1))});
    CRTSPClient client(times);
    EXPECT_TRUE(client.Connect(kCamera, kPort, 5000));
    return Perform(client, "DS", 1);
  };
  ProtocolTimes impatient = Times();
  impatient.rtspReply = 100ms;
  EXPECT_EQ(play([](Connection& connection) { connection.Drip(std::string(200, 'x'), 10ms); }, impatient),
            "ds");
  // One byte more than a line may have, and the line end doesn't save it.
  const std::string head = "RTSP/1.0 200 OK\r\nCSeq: 1\r\na: ";
  const std::string tail = "\nc: d\r\nL: 0\r\n\r\n";
  const std::size_t most = RtspReader::kMaxLineBytes - std::string("a: \n").size();
  EXPECT_EQ(play(Send(head + std::string(most, 'x') + tail)), "DS");
  EXPECT_EQ(play(Send(head + std::string(most + 1, 'x') + tail)).front(), 'd');
}

TEST(CRTSPClient, AConnectionThatNeverStandsCostsTheTimeOutAndAtLeastOneStep) {
  const Blackhole camera;
  ProtocolTimes times;
  times.rtspConnectStep = 60ms;
  for (const u32 timeout : {0U, 200U}) {
    CRTSPClient client(times);
    const u64 began = platform::MonotonicMilliseconds();
    EXPECT_FALSE(client.Connect(kCamera, camera.Port(), timeout));
    EXPECT_GE(platform::MonotonicMilliseconds() - began, timeout == 0 ? 60U : 180U) << "steps of 60";
    EXPECT_FALSE(client.Pause(true)) << "the socket is closed again";
    for (const char* const address : {"127.000.000.0001", "localhost", "", static_cast<const char*>(nullptr)}) {
      EXPECT_FALSE(client.Connect(address, kPort, 100)) << (address != nullptr ? address : "null");
    }
  }
}

TEST(CRTSPClient, AnInterruptionEndsWhateverIsInProgressForGood) {
  ProtocolTimes endless;
  endless.rtspReceive = 1h;
  const Blackhole deaf;
  const Camera silent({Send("RTSP/1.0 200 OK\r\nCSeq: 2\r\n" + kTransport + "S")});
  const u64 began = platform::MonotonicMilliseconds();
  {
    CRTSPClient client(endless);
    std::thread connecting([&] { EXPECT_FALSE(client.Connect(kCamera, deaf.Port(), 3'600'000)); });
    client.Interrupt();
    connecting.join();
  }
  CRTSPClient client(endless);
  ASSERT_TRUE(client.Connect(kCamera, kPort, 5000));
  std::thread reading([&] { EXPECT_EQ(Perform(client, "SP", 1), "sp"); });
  EXPECT_TRUE(silent.Requests().WaitFor("SETUP"));
  client.Interrupt();
  reading.join();
  EXPECT_FALSE(client.Connect(kCamera, deaf.Port(), 3'600'000));
  EXPECT_LT(platform::MonotonicMilliseconds() - began, 60'000U);
}

}  // namespace
}  // namespace sarnevo
