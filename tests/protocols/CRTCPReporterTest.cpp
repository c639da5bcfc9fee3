#include "protocols/CRTCPReporter.h"

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "protocols/RtcpAnswer.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using platform::Socket;
using platform::SocketAddress;
using platform::SocketError;
using Bytes = std::vector<u8>;

constexpr u16 kPort = 3557;

// 0x10 to 0x10 + size - 1, so that each byte of an answer shows where it came from.
Bytes Report(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<u8>(0x10 + i);
  }
  return bytes;
}

TEST(RtcpAnswer, ByteForByte) {
  const Bytes expected = {
      0x81, 201,  0x00, 0x07,                           // receiver report
      0xA1, 0xB2, 0xC3, 0xD4,                           // own SSRC
      0x14, 0x15, 0x16, 0x17,                           // the source's
      0x00, 0x00, 0x00, 0x00,                           // losses
      0x00, 0x00, 0x12, 0x34,                           // cycles, sequence number
      0x00, 0x00, 0x00, 0x00,                           // jitter
      0x1A, 0x1B, 0x1C, 0x1D,                           // last SR
      0x00, 0x00, 0x00, 0x01,                           // delay since
      0x81, 202,  0x00, 0x05,                           // source description
      0xA1, 0xB2, 0xC3, 0xD4,                           //
      0x01, 0x07, 'd',  'e',  'f', 'a', 'u', 'l', 't',  // CNAME
      0,    0,    0,    0,    0,   0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
  };
  const auto answer = AnswerSenderReport(Report(20), {0xA1B2C3D4, "default"}, 0x1234);
  ASSERT_TRUE(answer);
  EXPECT_EQ(Bytes(answer->begin(), answer->end()), expected);
  EXPECT_FALSE(AnswerSenderReport(Report(19), {0xA1B2C3D4, "default"}, 0x1234));
}

// The camera's RTCP socket.
class Camera {
 public:
  void Send(const Bytes& datagram) {
    EXPECT_EQ(socket_.SendTo(datagram, *SocketAddress::Parse("127.0.0.1", kPort)), SocketError::None);
  }
  Bytes Receive(platform::Milliseconds limit) {
    Bytes answer(200);
    SocketAddress from;
    socket_.SetReceiveTimeout(limit);
    const auto got = socket_.ReceiveFrom(answer, from);
    EXPECT_TRUE(got.error != SocketError::None || from.Port() == kPort);
    answer.resize(got.error == SocketError::None ? got.count : 0);
    return answer;
  }
  // The answer to a report; sends it again while the reporter may still be binding its port.
  Bytes Ask(const Bytes& report) {
    Bytes answer;
    for (int i = 0; i < 400 && answer.empty(); ++i) {
      Send(report);
      answer = Receive(50ms);
    }
    return answer;
  }
  bool HearsNothing() { return Receive(300ms).empty(); }

 private:
  Socket socket_ = Socket::CreateUdp();
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
    const Bytes answer = Camera().Ask(Bytes(20, 0xFF));
    ASSERT_EQ(answer.size(), 68U);
    EXPECT_EQ(answer[41], host.length);
    EXPECT_EQ(std::string(answer.begin() + 42, answer.end()), host.name);
    EXPECT_NE(Bytes(answer.begin() + 4, answer.begin() + 8), (Bytes{0, 0, 0, 0})) << "an SSRC";
    reporter.RequestStop();
    EXPECT_TRUE(reporter.Stop());
  }
}

TEST(CRTCPReporter, ATimeOutDoesntEndItButAnOversizedDatagramDoes) {
  ProtocolTimes times;
  times.reporterReceive = 10ms;
  CRTCPReporter reporter(times);
  ASSERT_TRUE(reporter.Start(kPort));
  Camera camera;
  ASSERT_EQ(camera.Ask(Report(20)).size(), 68U);
  EXPECT_TRUE(camera.HearsNothing()) << "through many time-outs";
  ASSERT_EQ(camera.Ask(Report(4096)).size(), 68U);
  camera.Send(Report(4097));
  camera.Send(Report(20));
  EXPECT_TRUE(camera.HearsNothing());
  EXPECT_TRUE(reporter.Stop()) << "it has ended by itself";
}

TEST(CRTCPReporter, ATakenPortDoesntShowAndStopEndsAThreadThatNobodyAsked) {
  Socket other = Socket::CreateUdp();
  ASSERT_EQ(other.Bind(SocketAddress::Any(kPort)), SocketError::None);
  ProtocolTimes times;
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
