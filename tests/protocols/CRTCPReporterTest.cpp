#include "protocols/CRTCPReporter.h"

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/Clock.h"
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

Bytes Answer(const Bytes& report, std::string_view cname, u16 sequence) {
  const auto answer = AnswerSenderReport(report, {0xA1B2C3D4, cname}, sequence);
  return answer ? Bytes(answer->begin(), answer->end()) : Bytes{};
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
  ASSERT_EQ(expected.size(), 68U);
  EXPECT_EQ(Answer(Report(20), "default", 0x1234), expected);
  EXPECT_EQ(Answer(Report(4096), "default", 0x1234), expected);
  EXPECT_EQ(Answer(Report(19), "default", 0x1234), Bytes{});

  const Bytes longName = Answer(Report(20), "abcdefghijklmnopqrstuvwxyz1234", 0);
  EXPECT_EQ(longName.size(), 68U);
  EXPECT_EQ(longName[41], 30) << "the whole length, though the name is cut";
  EXPECT_EQ(std::string(longName.begin() + 42, longName.end()), "abcdefghijklmnopqrstuvwxyz");
}

// The camera's RTCP socket.
class Camera {
 public:
  Camera() { socket_.SetReceiveTimeout(20s); }
  void Send(const Bytes& datagram) {
    EXPECT_EQ(socket_.SendTo(datagram, *SocketAddress::Parse("127.0.0.1", kPort)), SocketError::None);
  }
  // The answer to a report; sends it again while the reporter may still be binding its port.
  Bytes Ask(const Bytes& report) {
    Bytes answer(200);
    SocketAddress from;
    socket_.SetReceiveTimeout(50ms);
    for (int i = 0; i < 400; ++i) {
      Send(report);
      const auto got = socket_.ReceiveFrom(answer, from);
      if (got.error == SocketError::None) {
        EXPECT_EQ(from.Port(), kPort);
        answer.resize(got.count);
        return answer;
      }
    }
    return {};
  }
  bool HearsNothing() {
    Bytes answer(200);
    SocketAddress from;
    socket_.SetReceiveTimeout(300ms);
    return socket_.ReceiveFrom(answer, from).error == SocketError::TimedOut;
  }

 private:
  Socket socket_ = Socket::CreateUdp();
};

TEST(CRTCPReporter, AnswersWhateverIsLargeEnough) {
  CRTCPReporter reporter({}, [] { return std::optional<std::string>(); });
  ASSERT_TRUE(reporter.Start(kPort));
  Camera camera;
  Bytes answer = camera.Ask(Bytes(20, 0xFF));
  ASSERT_EQ(answer.size(), 68U);
  EXPECT_EQ(Bytes(answer.begin() + 18, answer.begin() + 20), (Bytes{0, 0})) << "no packet yet";
  EXPECT_EQ(answer[41], 7);
  EXPECT_EQ(std::string(answer.begin() + 42, answer.begin() + 49), "default");
  EXPECT_EQ(Bytes(answer.begin() + 4, answer.begin() + 8), Bytes(answer.begin() + 36, answer.begin() + 40));

  reporter.SetLastSequence(0xFEDC);
  Camera second;
  second.Send(Bytes(19, 1));
  answer = second.Ask(Report(28));
  EXPECT_EQ(Bytes(answer.begin() + 18, answer.begin() + 20), (Bytes{0xFE, 0xDC}));
  EXPECT_TRUE(second.HearsNothing()) << "19 bytes get no answer";
  reporter.RequestStop();
  EXPECT_TRUE(reporter.Stop());
  EXPECT_TRUE(reporter.Stop());
}

TEST(CRTCPReporter, ATimeOutDoesntEndItButAnEmptyOrAnOversizedDatagramDoes) {
  ProtocolTimes times;
  times.reporterReceive = 10ms;
  for (const std::size_t last : {std::size_t{0}, std::size_t{4097}}) {
    CRTCPReporter reporter(times);
    ASSERT_TRUE(reporter.Start(kPort));
    Camera camera;
    ASSERT_EQ(camera.Ask(Report(20)).size(), 68U);
    EXPECT_TRUE(camera.HearsNothing()) << "through many time-outs";
    ASSERT_EQ(camera.Ask(Report(4096)).size(), 68U);
    camera.Send(Report(last));
    camera.Send(Report(20));
    EXPECT_TRUE(camera.HearsNothing()) << last;
    EXPECT_TRUE(reporter.Stop()) << "it has ended by itself";
  }
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

  ASSERT_TRUE(reporter.Start(kPort));
  times.reporterReceive = 1h;
  CRTCPReporter patient(times);
  ASSERT_TRUE(patient.Start(kPort + 1));
  patient.RequestStop();
  EXPECT_TRUE(patient.Stop()) << "a request ends the wait for a datagram";
}

TEST(CRTCPReporter, NamesItselfAfterTheHostAndDrawsItsSsrcBySecond) {
  const auto answerOf = [](CRTCPReporter::HostNameSource name) {
    CRTCPReporter reporter({}, name);
    const u32 second = platform::UtcSeconds();
    EXPECT_TRUE(reporter.Start(kPort));
    const bool sure = platform::UtcSeconds() == second;
    Bytes answer = Camera().Ask(Report(20));
    EXPECT_EQ(answer.size(), 68U);
    answer.resize(68);
    return std::tuple(sure, second, answer);
  };
  const auto named = [] { return std::optional<std::string>(std::string(30, 'n')); };
  const auto tooLong = [] { return std::optional<std::string>(std::string(128, 'n')); };
  const auto noMemory = []() -> std::optional<std::string> { throw std::bad_alloc(); };
  const auto ssrc = [](const Bytes& answer) { return Bytes(answer.begin() + 4, answer.begin() + 8); };

  const Bytes name = std::get<Bytes>(answerOf(named));
  EXPECT_EQ(name[41], 30);
  EXPECT_EQ(std::string(name.begin() + 42, name.end()), std::string(26, 'n'));
  EXPECT_EQ(std::get<Bytes>(answerOf(tooLong))[41], 7) << "a name that doesn't fit is none";
  EXPECT_EQ(std::get<Bytes>(answerOf(noMemory))[41], 7);

  // The two starts may fall into different seconds; then they are tried again.
  for (int i = 0; i < 20; ++i) {
    const auto [sure1, second1, answer1] = answerOf(named);
    const auto [sure2, second2, answer2] = answerOf(named);
    if (sure1 && sure2 && second1 == second2) {
      EXPECT_EQ(ssrc(answer1), ssrc(answer2));
      EXPECT_NE(ssrc(answer1), (Bytes{0, 0, 0, 0}));
      return;
    }
  }
  FAIL() << "never two starts within one second";
}

}  // namespace
}  // namespace sarnevo
