#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"

namespace {

using namespace simcam;
using namespace simcam_test;

constexpr auto kLimit = std::chrono::seconds(5);

void Replace(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

TEST(CameraRtsp, RepliesLineByLineAsEachGroupDoes) {
  CameraFarm farm;
  for (const int group : {1, 2}) {
    SimulatedCamera& camera = farm.Add(group == 1 ? "group=1,model=P-400,address=127.0.1.1,codec=mjpeg"
                                                  : "group=2,model=P-405,address=127.0.1.2,codec=mpeg4");
    Stream stream("127.0.1." + std::to_string(group), group);
    std::string text = stream.replies;
    EXPECT_EQ(camera.Status().playing, 1U);
    text += stream.Request("PAUSE");
    EXPECT_EQ(camera.Status().playing, 0U);
    EXPECT_EQ(camera.Status().sessions, 1U);
    text += stream.Request("TEARDOWN");
    EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.sessions == 0; }, kLimit));
    // Names for what differs from run to run.
    Replace(text, "\r\n", "\n");
    Replace(text, std::to_string(stream.rtp.number()) + "-" + std::to_string(stream.rtcp.number()), "PORTS");
    Replace(text, "Session: " + stream.session, "ID");
    for (std::size_t at = text.find("Date: "); at != std::string::npos; at = text.find("Date: ")) {
      EXPECT_THAT(text.substr(at, 35),
                  testing::MatchesRegex("Date: [A-Z][a-z]{2}, [0-9]{2} [A-Z][a-z]{2} [0-9]{4} "
                                        "[0-9]{2}:[0-9]{2}:[0-9]{2} GMT"));
      text.replace(at, 35, "DATE");
    }
    const std::string date = group == 1 ? "" : "DATE\n";
    const std::string ok = "RTSP/1.0 200 OK\nCSeq: ";
    const std::string body = group == 1
                                 ? "Content-Base: rtsp://127.0.1.1:554/object.sdp/\n"
                                   "Content-Type: application/sdp\nContent-Length: 115\n\n"
                                   "v=0\no=- 1 1 IN IP4 127.0.1.1\ns=Kolvex P-400\nc=IN IP4 0.0.0.0\nt=0 0\n"
                                   "m=video 0 RTP/AVP 26\na=control:trackID=0\n"
                                 : "Content-Base: rtsp://127.0.1.2:554/\n"
                                   "Content-Type: application/sdp\nContent-Length: 121\n\n"
                                   "v=0\no=- 1 1 IN IP4 127.0.1.2\ns=Kolvex P-405\nc=IN IP4 0.0.0.0\nt=0 0\n"
                                   "m=video 0 RTP/AVP 96\na=rtpmap:96 MP4V-ES/90000\n";
    EXPECT_EQ(text, ok + "1\n" + date + body + ok + "2\n" + date +
                        "Transport: RTP/AVP;unicast;client_port=PORTS;server_port=6970-6971\nID\n\n" + ok +
                        "3\n" + date + "ID\n\n" + ok + "4\n" + date + "ID\n\n" + ok + "5\n" + date + "\n");
  }
  { Stream dropped("127.0.1.1", 1); }
  EXPECT_TRUE(farm.cameras()[0]->WaitUntil([](const CameraStatus& s) { return s.sessions == 0; }, kLimit));
}

TEST(CameraRtsp, RefusesWhatItDoesNotOffer) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  struct Refusal {
    const char* request;
    const char* status;
  };
  const Refusal rows[] = {
      {"SETUP rtsp://127.0.1.1:554/object.sdp/trackID=0 RTSP/1.0\r\nCSeq: 7\r\n"
       "Transport: RTP/AVP;unicast;client_port=0-0\r\n\r\n",
       "461 Unsupported Transport"},
      {"PLAY rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 7\r\nSession: 1\r\n\r\n",
       "454 Session Not Found"},
  };
  for (const Refusal& row : rows) {
    Wire wire("127.0.1.1", 554, row.request);
    EXPECT_THAT(wire.Read(SIZE_MAX, "\r\n\r\n"), testing::StartsWith(std::string("RTSP/1.0 ") + row.status));
    EXPECT_TRUE(camera.WaitForRequest(row.request, kLimit));
  }
}

/// A right answer to a report, as a driver writes it, which claims a delay of @p delay.
Bytes AnswerTo(const Bytes& report, std::uint8_t delay) {
  Bytes bytes = {0x81, 201, 0, 7, 1, 2, 3, 4,  // receiver report, one block
                 0,    0,   0, 0, 0, 0, 0, 0,     0, 0, 0,   0,   0,   0,
                 0,    0,                          // reported on, losses, sequence, jitter
                 0,    0,   0, 0, 0, 0, 0, delay,  // last report, delay
                 0x81, 202, 0, 5, 1, 2, 3, 4,     1, 4, 'h', 'o', 's', 't'};  // description
  bytes.resize(68, 0);
  std::copy_n(report.begin() + 4, 4, bytes.begin() + 8);
  std::copy_n(report.begin() + 10, 4, bytes.begin() + 24);
  return bytes;
}

TEST(CameraReports, GoOutWithTheStreamAndTheirAnswersAreChecked) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  Stream stream("127.0.2.1", 2);
  const std::vector<Bytes> frame = stream.NextFrame();
  const Bytes report = stream.rtcp.Receive();
  ASSERT_GE(report.size(), 54U);
  EXPECT_EQ(Word(report, 0), 0x80C80006U);
  EXPECT_EQ(Word(report, 4), Word(frame.at(0), 8)) << "SSRC";
  EXPECT_LT(Word(report, 16) - Word(frame.at(0), 4), 90'000U * 5) << "time stamps of one clock";
  EXPECT_GT(Word(report, 20), 0U) << "packets";
  EXPECT_EQ(report.size(), 28 + 4 * ((Word(report, 28) & 0xFFFFU) + 1));
  EXPECT_EQ(std::string(report.begin() + 38, report.begin() + 54), "camera@127.0.2.1");
  for (const std::uint8_t delay : {std::uint8_t{1}, std::uint8_t{2}}) {
    stream.rtcp.Answer(AnswerTo(report, delay));
    EXPECT_TRUE(camera.WaitUntil(
        [&](const CameraStatus& s) { return s.counters.answersOk == 1 && s.counters.answersBad == delay - 1U; },
        kLimit))
        << camera.Status().counters.lastBadAnswer;
  }
}

}  // namespace
