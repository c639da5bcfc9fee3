#include "protocols/CRTSPClient.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Socket.h"
#include "support/HostLog.h"
#include "support/ScriptedServer.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using kolvex_test::Blackhole;
using kolvex_test::HostLog;
using kolvex_test::ScriptedServer;

constexpr u16 kPort = 554;
constexpr const char* kCamera = "127.0.0.1";

// Short where a test waits for a time-out to pass, else long enough for a busy machine.
ChannelTiming Times(platform::Milliseconds receive = 10s) {
  ChannelTiming times;
  times.rtspReceive = receive;
  times.rtspConnectStep = 10ms;
  return times;
}

const std::string kTransport = "Transport: RTP/AVP;unicast;client_port=3556-3557;server_port=6000-6001\r\n";

// Replies as cameras of either group give them; group 2 has a line more after CSeq.
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

struct Dialogue {
  std::string results;
  std::string requests;  // a line feed after each
};

// A camera answers each request with the next reply; then it closes, or listens on in silence.
Dialogue Talk(const std::string& operations, int group, const std::vector<std::string>& replies,
              const ChannelTiming& times = Times(), bool closes = false, const char* address = kCamera) {
  HostLog requests;
  const auto answer = [&](ScriptedServer::Connection& connection) {
    auto next = replies.begin();
    for (std::string head = connection.ReadHead(); !head.empty(); head = connection.ReadHead()) {
      requests.Add(head);
      if (next != replies.end()) {
        connection.Send(*next++);
      }
      if (closes && next == replies.end()) {
        return;
      }
    }
  };
  const ScriptedServer camera(answer, kCamera, kPort);
  CRTSPClient client(times);
  EXPECT_TRUE(client.Connect(address, kPort, 5000));
  const std::string results = Perform(client, operations, group);
  client.Disconnect();
  requests.WaitFor("", operations.size(), 20ms);
  return {results, requests.Text()};
}

TEST(CRTSPClient, AWholeStreamOfEitherGroupByteForByte) {
  // Addresses as people type them go out as they came, up to 15 characters.
  for (const auto& [group, address] :
       {std::pair{1, "127.0.0.1"}, {1, "127.1"}, {2, "127.0.0.1"}, {2, "127.00.0000.001"}}) {
    const std::string url = "rtsp://" + std::string(address) + (group == 1 ? ":554/object.sdp" : ":554/");
    const std::string track = group == 1 ? url + "/trackID=0" : url;
    const std::string session = "Session: 1234;timeout=60\r\n\r\n\n";
    const Dialogue dialogue = Talk(
        "DSPAT", group, {Described(group), Prepared(group), Played(group), Played(group, 4), Played(group, 5)},
        Times(), false, address);
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
  const std::string most = ok + "CSeq: 1\r\na: " + std::string(RtspReader::kMaxLineBytes - 4, 'x');
  const std::string afterMost = "\nc: d\r\nL: 0\r\n\r\n";
  platform::Socket named;
  ASSERT_TRUE(named.Open(platform::Transport::Udp));
  ASSERT_EQ(named.Bind(platform::SocketAddress::Any(6000)), platform::SocketError::None);
  const std::string elsewhere = "client_port=1-2;server_port=6000-6000;source=127.0.0.9;destination=127.0.0.9";
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
      {"no number after CSeq", "S", 1, {ok + "CSeq:\r\n" + kTransport + "Session: 1\r\n\r\n"}, "s"},
      {"200 anywhere in the line", "S", 1, {"RTSP/1.0 404 see200" + Prepared(1).substr(15)}, "S"},
      {"a version of 15 characters", "S", 1, {"ABCDEFGHIJKLMNO" + Prepared(1).substr(8)}, "s"},
      {"a port of 0", "S", 1, {transport("client_port=3556-0;server_port=1-2")}, "s"},
      {"no client's ports", "S", 1, {transport("server_port=1-2")}, "s"},
      {"other addresses", "SP", 1, {transport(elsewhere), Played(1)}, "SP"},
      {"no camera's ports", "S", 1, {transport("client_port=1-2;")}, "s"},
      {"half of the camera's ports", "S", 1, {transport("client_port=1-2;server_port=6000-")}, "s"},
      {"a line more as for group 2", "S", 1, {Prepared(2)}, "s"},
      {"a line less as for group 1", "S", 2, {Prepared(1)}, "s"},
      {"Session in front of Transport", "S", 1, {Head(1, 2) + "Session: 1\r\n" + kTransport + "\r\n"}, "s"},
      {"an empty Session is none of our business", "S", 1, {Head(1, 2) + kTransport + "Session:\r\n\r\n"}, "S"},
      {"no TEARDOWN after a failed SETUP", "SPT", 1, {missingSession, Played(1)}, "sPt"},
      {"what comes after a zero byte doesn't count", "S", 1, {"RTSP/1.0 \0 200 OK\r\n"s}, "s"},
      {"long lines everywhere", "DSP", 2, {longDescribed, longPrepared, Played(2)}, "DSP"},
      {"a line as long as may be", "DS", 1, {most + afterMost, Prepared(1)}, "DS"},
      {"a longer one isn't saved by its end", "D", 1, {most + "x" + afterMost}, "d"},
      {"no length counts as the last one, 0", "DS", 1, {body + "L: none\r\n\r\n", Prepared(1)}, "DS"},
      {"a negative length", "D", 1, {body + "L: -1\r\n\r\n"}, "d"},
      {"a length beyond belief", "D", 1, {body + "L: 65537\r\n\r\n"}, "d"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(Talk(each.operations, each.group, each.replies).results, each.results);
  }
  std::uint8_t byte = 0;
  platform::SocketAddress from;
  EXPECT_EQ(named.ReceiveFrom({&byte, 1}, from, false).error, platform::SocketError::NotYet)
      << "nothing goes there";
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
        << "closed after " << whole.substr(0, length);
  }
  // On a busy machine a good reply may come after the time-out, but not after each of these.
  const auto expectInSilence = [](const char* operation, const std::string& reply, const char* results) {
    std::string got;
    for (auto timeout = 40ms; timeout < 4s && got != results; timeout *= 5) {
      got = Talk(operation, 1, {reply}, Times(timeout)).results;
    }
    EXPECT_EQ(got, results) << "silent after " << reply;
  };
  for (const std::size_t length : {std::size_t{0}, ports, blankLine, blankLine + 1}) {
    expectInSilence("S", whole.substr(0, length), length > blankLine ? "S" : "s");
  }
  // A body of which something came is whole at a time-out.
  const std::string described = Described(1);
  expectInSilence("D", described.substr(0, described.size() - 9), "d");
  expectInSilence("D", described.substr(0, described.size() - 8), "D");
}

TEST(CRTSPClient, AConnectionThatNeverComesCostsTheTimeOutAndAtLeastOneStep) {
  const Blackhole camera;
  ChannelTiming times;
  times.rtspConnectStep = 60ms;
  CRTSPClient client(times);
  for (const u32 timeout : {0U, 200U}) {
    const auto began = platform::MonotonicTime();
    EXPECT_FALSE(client.Connect(kCamera, camera.Port(), timeout));
    EXPECT_GE(platform::MonotonicTime() - began, timeout == 0 ? 60ms : 180ms) << "steps of 60";
    EXPECT_FALSE(client.Pause(true)) << "the socket is closed again";
  }
  for (const char* const address : {"127.000.000.0001", "localhost", "", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(client.Connect(address, kPort, 100)) << (address != nullptr ? address : "null");
  }
}

TEST(CRTSPClient, AnInterruptionEndsWhateverIsInProgressForGood) {
  // A reply that hasn't come yet, and one whose last line isn't taken for whole.
  for (const std::string& reply : {""s, "RTSP/1.0 200 OK\r\nCSeq: 2\r\n" + kTransport + "S"}) {
    HostLog requests;
    const auto answer = [&](ScriptedServer::Connection& connection) {
      requests.Add(connection.ReadHead());
      connection.Send(reply);
      connection.WaitForEnd();
    };
    const ScriptedServer camera(answer, kCamera, kPort);
    CRTSPClient client(Times(1h));
    ASSERT_TRUE(client.Connect(kCamera, kPort, 5000));
    std::thread reading([&] { EXPECT_EQ(Perform(client, "SP", 1), "sp"); });
    EXPECT_TRUE(requests.WaitFor("SETUP"));
    client.Interrupt();
    reading.join();
    const Blackhole deaf;
    EXPECT_FALSE(client.Connect(kCamera, deaf.Port(), 3'600'000));
  }
}

}  // namespace
}  // namespace sarnevo
