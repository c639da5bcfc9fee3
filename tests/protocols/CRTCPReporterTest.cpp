// When a reporter answers. What it answers is asked of it byte by byte with the corpora (fuzz/RtcpReportsFuzz.cpp).
#include "protocols/CRTCPReporter.h"

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <string>
#include <vector>

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using platform::Socket;
using platform::SocketAddress;
using platform::SocketError;
using Bytes = std::vector<u8>;

constexpr u16 kPort = 3557;

// The camera's RTCP socket.
class Camera {
 public:
  Camera() { EXPECT_TRUE(socket_.Open(platform::Transport::Udp) && socket_.SetReceiveTimeout(50ms)); }
  // The answer to a report of so many bytes. Asks again, since the reporter may still be binding its port. An answer
  // has the report's bytes in it: late ones to earlier reports don't count.
  Bytes Ask(std::size_t size, int attempts = 400) {
    ++mark_;
    SocketAddress from;
    for (Bytes answer(200); attempts > 0; --attempts) {
      EXPECT_EQ(socket_.SendTo(Bytes(size, mark_), *SocketAddress::Parse("127.0.0.1", kPort)),
                SocketError::None);
      for (auto got = socket_.ReceiveFrom(answer, from); got.error == SocketError::None;
           got = socket_.ReceiveFrom(answer, from)) {
        EXPECT_EQ(from.Port(), kPort);
        if (answer[8] == mark_) {
          answer.resize(got.count);
          return answer;
        }
      }
    }
    return {};
  }

 private:
  u8 mark_ = 0x80;
  Socket socket_;
};

TEST(CRTCPReporter, AnswersInItsHostsName) {
  const std::string none = "default" + std::string(19, '\0');
  const struct {
    CRTCPReporter::HostNameSource source;
    u8 length;
    std::string name;
  } kHosts[] = {
      {[] { return std::optional<std::string>(); }, 7, none},
      {[] { return std::optional<std::string>(std::string(30, 'n')); }, 30, std::string(26, 'n')},
      {[] { return std::optional<std::string>(std::string(128, 'n')); }, 7, none},
      {[]() -> std::optional<std::string> { throw std::bad_alloc(); }, 7, none},
  };
  for (const auto& host : kHosts) {
    CRTCPReporter reporter({}, host.source);
    ASSERT_TRUE(reporter.Start(kPort));
    const Bytes answer = Camera().Ask(20);
    ASSERT_EQ(answer.size(), 68U);
    EXPECT_EQ(answer[41], host.length);
    EXPECT_EQ(std::string(answer.begin() + 42, answer.end()), host.name);
    EXPECT_NE(Bytes(answer.begin() + 4, answer.begin() + 8), (Bytes{0, 0, 0, 0})) << "an SSRC";
    reporter.RequestStop();
    EXPECT_TRUE(reporter.Stop());
  }
}

TEST(CRTCPReporter, ATimeOutDoesntEndItButAnOversizedDatagramDoes) {
  ChannelTiming times;
  times.reporterReceive = 10ms;
  CRTCPReporter reporter(times);
  ASSERT_TRUE(reporter.Start(kPort));
  Camera camera;
  EXPECT_EQ(camera.Ask(20).size(), 68U);
  EXPECT_TRUE(camera.Ask(19, 6).empty());
  EXPECT_EQ(camera.Ask(4096).size(), 68U) << "through many time-outs";
  EXPECT_TRUE(camera.Ask(4097, 1).empty());
  EXPECT_TRUE(camera.Ask(20, 6).empty());
  EXPECT_TRUE(reporter.Stop()) << "it has ended by itself";
}

TEST(CRTCPReporter, ATakenPortDoesntShowAndStopEndsAThreadThatNobodyAsked) {
  Socket other;
  ASSERT_TRUE(other.Open(platform::Transport::Udp));
  ASSERT_EQ(other.Bind(SocketAddress::Any(kPort)), SocketError::None);
  ChannelTiming times;
  times.reporterStop = 50ms;
  CRTCPReporter reporter(times);
  ASSERT_TRUE(reporter.Start(kPort));
  EXPECT_FALSE(reporter.Stop()) << "no request, so that it has to be ended";
  EXPECT_TRUE(reporter.Stop());
  times.reporterReceive = 1h;
  CRTCPReporter patient(times);
  ASSERT_TRUE(patient.Start(kPort + 1));
  patient.RequestStop();
  EXPECT_TRUE(patient.Stop()) << "a request ends the wait for a datagram";
}

}  // namespace
}  // namespace sarnevo
