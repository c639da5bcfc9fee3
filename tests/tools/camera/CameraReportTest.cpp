#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/stream/ReportChecker.h"

namespace {

using namespace simcam;
using namespace simcam_test;

/// A right answer to a report of SSRC 0xAABBCCDD, as a driver writes it.
std::vector<std::uint8_t> RightAnswer() {
  std::vector<std::uint8_t> bytes = {0x81, 201,  0,    7,     // receiver report, one block, 8 words
                                     0x01, 0x02, 0x03, 0x04,  // the reporter
                                     0xAA, 0xBB, 0xCC, 0xDD,  // reported on
                                     0,    0,    0,    0,     // losses
                                     0,    0,    0x12, 0x34,  // highest sequence number
                                     0,    0,    0,    0,     // jitter
                                     0x11, 0x22, 0x33, 0x44,  // last report
                                     0,    0,    0,    1,     // delay
                                     0x81, 202,  0,    5,     // description
                                     0x01, 0x02, 0x03, 0x04,  // of the reporter
                                     1,    4,    'h',  'o',  's', 't'};
  bytes.resize(68, 0);
  return bytes;
}

TEST(CameraReports, CheckEveryFieldOfAnAnswer) {
  const ReportExpectation expected{0xAABBCCDD, 0x11223344, 0x1240, true};
  EXPECT_EQ(CheckReceiverReport(RightAnswer(), expected), "");
  struct Row {
    std::size_t offset;
    std::uint8_t value;
    const char* complaint;
  };
  const Row rows[] = {
      {0, 0x80, "version and report count"},
      {1, 200, "packet type of the receiver report"},
      {3, 6, "length of the receiver report"},
      {8, 0, "reports on SSRC"},
      {12, 1, "losses"},
      {17, 1, "sequence cycles"},
      {18, 0x13, "has seen sequence number"},
      {23, 1, "jitter"},
      {24, 0, "answers the report"},
      {31, 2, "delay"},
      {32, 0x80, "version and source count"},
      {33, 203, "packet type of the source description"},
      {35, 8, "length of the source description"},
      {36, 9, "describes another source"},
      {40, 2, "item type"},
      {41, 0, "name doesn't fit"},
      {41, 5, "name doesn't fit"},
      {67, 1, "name doesn't fit"},
  };
  for (const Row& row : rows) {
    std::vector<std::uint8_t> bytes = RightAnswer();
    bytes[row.offset] = row.value;
    EXPECT_NE(CheckReceiverReport(bytes, expected).find(row.complaint), std::string::npos)
        << row.offset << ": " << CheckReceiverReport(bytes, expected);
  }
  std::vector<std::uint8_t> longName = RightAnswer();
  longName[41] = 30;
  std::fill(longName.begin() + 42, longName.end(), 'n');
  EXPECT_EQ(CheckReceiverReport(longName, expected), "") << "26 bytes go out, the length tells 30";
  EXPECT_EQ(CheckReceiverReport(std::vector<std::uint8_t>(56), expected), "56 bytes long, not 68");
}

TEST(CameraReports, GoOutWithTheStreamAndCountTheirAnswers) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  Stream stream("127.0.2.1", 2);
  const std::vector<Datagram> frame = stream.NextFrame();
  ASSERT_FALSE(frame.empty());
  const std::optional<Datagram> report = stream.rtcp.Receive();
  ASSERT_TRUE(report);
  EXPECT_EQ(report->word(0), 0x80C80006U);
  EXPECT_EQ(report->word(4), frame[0].word(8)) << "SSRC";
  EXPECT_LT(report->word(16) - frame[0].word(4), 90'000U * 5) << "time stamps of one clock";
  EXPECT_GT(report->word(20), 0U) << "packets";
  EXPECT_EQ(report->word(28) >> 16U, 0x81CAU);
  EXPECT_EQ(report->bytes.size(), 28 + 4 * ((report->word(28) & 0xFFFFU) + 1));
  EXPECT_EQ(std::string(report->bytes.begin() + 38, report->bytes.begin() + 54), "camera@127.0.2.1");

  std::vector<std::uint8_t> answer = RightAnswer();
  std::copy_n(report->bytes.begin() + 4, 4, answer.begin() + 8);
  std::copy_n(report->bytes.begin() + 10, 4, answer.begin() + 24);
  answer[18] = frame[0].bytes[2];
  answer[19] = frame[0].bytes[3];
  stream.rtcp.Answer(answer);
  EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.counters.answersOk == 1; },
                               std::chrono::seconds(5)))
      << camera.Status().counters.lastBadAnswer;
  answer[31] = 2;
  stream.rtcp.Answer(answer);
  EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.counters.answersBad == 1; },
                               std::chrono::seconds(5)));
}

}  // namespace
