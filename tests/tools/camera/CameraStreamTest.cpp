#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>

#include "CameraClient.h"
#include "PictureDecoder.h"
#include "simcam/CameraFarm.h"
#include "simcam/FrameCounter.h"
#include "video/JpegHeader.h"

namespace {

using namespace simcam;
using namespace simcam_test;

constexpr auto kLimit = std::chrono::seconds(5);

/// The file of one JPEG frame, made as the driver makes it: only the first packet's RFC 2435 header counts.
Bytes JpegOf(const std::vector<Bytes>& frame, int group) {
  Bytes payloads;
  for (const Bytes& packet : frame) {
    payloads.insert(payloads.end(), packet.begin() + (payloads.empty() ? 12 : 20), packet.end());
  }
  const auto layout = group == 1 ? sarnevo::JpegLayout::Group1 : sarnevo::JpegLayout::Group2;
  const auto parsed = sarnevo::ParseJpegFrame(payloads, layout);
  Bytes file(parsed ? JpegHeaderSize(layout) : 0);
  if (parsed) {
    WriteJpegHeader(file, *parsed, layout);
    file.insert(file.end(), parsed->scan.begin(), parsed->scan.end());
  }
  return file;
}

struct Row {
  int group;
  const char* configuration;
  unsigned width, height, fps;
  unsigned keyEvery;  // MPEG-4; 0 is JPEG
};

const Row kRows[] = {
    {1, "tv_standard=NTSC&resolution=qcif&const_qu=17&fps=30&gopsize=1&mode=mjpeg&sequence=i", 176, 112, 30, 0},
    {1, "tv_standard=NTSC&resolution=qcif&targetrate=256&fps=10&gopsize=10&const_qu=0&mode=mpeg4&sequence=ip",
     176, 112, 10, 10},
    {2, "Resolution=sxga&Fps=10&Format=PAL&Mode=mjpeg&Jpeg_Quality=5", 1280, 1024, 10, 0},
    {2, "Resolution=qqvga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=1", 160, 120, 25, 0},
    {2, "Resolution=d1&Fps=25&Format=NTSC&Mode=mpeg4&Bitrate=64&GOPSelect=1", 720, 480, 25, 25},
};

TEST(CameraStream, CarriesPicturesThatDecodeWithoutAWordAndCountOn) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.configuration);
    const std::string address = row.group == 1 ? "127.0.1.1" : "127.0.2.1";
    const std::string program = row.group == 1 ? "/multimedia.cgi?action=apply&" : "/SetMultimedia.cgi?CH=0&";
    ASSERT_TRUE(Get(address, program + row.configuration).starts_with("HTTP/1.1 200"));
    Stream stream(address, row.group);
    kolvex_host::PictureDecoder decoder(row.keyEvery > 0 ? sarnevo::CodecMPEG4 : sarnevo::CodecMJPEG);
    std::uint32_t counter = 0, firstStamp = 0, stamp = 0;
    std::uint16_t sequence = 0;
    const unsigned frames = std::max(12U, row.keyEvery + 3);
    for (unsigned number = 0; number < frames; ++number) {
      const std::vector<Bytes> frame = stream.NextFrame();
      ASSERT_FALSE(frame.empty()) << "no frame " << number;
      stamp = Word(frame[0], 4);
      Bytes joined;
      std::size_t offset = 0;  // RFC 2435, 3.1: of a packet's scan bytes in the whole scan
      for (const Bytes& packet : frame) {
        EXPECT_LE(packet.size(), 1412U);
        EXPECT_EQ(Word(packet, 0) >> 16 & 0xFF7FU, row.keyEvery > 0 ? 0x8060U : 0x801AU);
        EXPECT_EQ(Word(packet, 4), stamp) << "one time stamp a frame";
        const auto own = static_cast<std::uint16_t>(Word(packet, 0));
        EXPECT_TRUE(number + joined.size() == 0 || own == static_cast<std::uint16_t>(sequence + 1));
        sequence = own;
        joined.insert(joined.end(), packet.begin() + 12, packet.end());
        if (row.keyEvery == 0) {
          EXPECT_EQ(Word(packet, 12) & 0xFFFFFFU, offset);
          offset += packet.size() - 12 - (offset > 0 ? 8 : row.group == 1 ? 140 : 245);
        }
      }
      if (row.keyEvery > 0) {
        EXPECT_EQ(Word(joined, 0), number % row.keyEvery == 0 ? 0x1B0U : 0x1B6U) << "frame " << number;
      }
      firstStamp = number == 0 ? stamp : firstStamp;
      const Bytes file = row.keyEvery > 0 ? joined : JpegOf(frame, row.group);
      EXPECT_TRUE(decoder.Decode(file)) << "frame " << number;
      EXPECT_TRUE(row.keyEvery > 0 || file.back() == 0xD9) << "the scan goes out with EOI";
      const kolvex_host::Luma luma = decoder.GetLuma();
      ASSERT_EQ(luma.width, row.width);
      ASSERT_EQ(luma.height, row.height);
      const auto shown = ReadFrameCounter(luma.pixels, luma.width, luma.height, luma.stride);
      ASSERT_TRUE(shown && (number == 0 || *shown == counter + 1)) << "frame " << number;
      counter = *shown;
    }
    // 90 kHz. A busy machine makes the first frame late and leaves ticks out, but it adds none.
    const double seconds = (stamp - firstStamp) / 90'000.0;
    EXPECT_GT(seconds, 0.5 * (frames - 1) / row.fps);
    EXPECT_LT(seconds, 20.0 * frames / row.fps);
    stream.Request("TEARDOWN");
  }
}

TEST(CameraStream, SharesAnEncoderUntilACameraShowsSomethingOfItsOwn) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .model = "P-426", .address = "127.0.3.1", .caption = "fleet"});
  SimulatedCamera& camera =
      farm.Add({.group = Group::One, .model = "P-426", .address = "127.0.3.2", .caption = "fleet"});
  Stream one("127.0.3.1", 1);
  Stream two("127.0.3.2", 1);
  EXPECT_NE(Word(one.NextFrame().at(0), 8), Word(two.NextFrame().at(0), 8)) << "the SSRC is each stream's own";
  EXPECT_EQ(farm.encoders(), 1U);
  Get("127.0.3.2", "/gpio.cgi?action=apply&relayid=1&value=1");
  EXPECT_EQ(farm.encoders(), 2U) << "a lamp is lit";
  Get("127.0.3.2", "/serial.cgi?action=apply&port=2&write=FF010002400043");
  EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.head.pan > 2; }, kLimit));
  kolvex_host::PictureDecoder decoder(sarnevo::CodecMJPEG);
  double last = 0;
  long difference = 0;
  Bytes before;
  // Frames from before the move still wait in the socket.
  for (int i = 0; i < 100 && difference < 10 * static_cast<long>(before.size() + 1); ++i) {
    EXPECT_TRUE(decoder.Decode(JpegOf(two.NextFrame(), 1)));
    const kolvex_host::Luma luma = decoder.GetLuma();
    const auto counter = ReadFrameCounter(luma.pixels, luma.width, luma.height, luma.stride);
    ASSERT_TRUE(counter);
    // The new encoder takes over where the shared one was; at the joint one number may be skipped or doubled.
    EXPECT_NEAR(*counter, i == 0 ? *counter : last + 1, 1.0);
    last = *counter;
    // A row through the houses, where nothing moves by itself.
    const auto* const row = luma.pixels + luma.height / 2 * luma.stride;
    before = i == 0 ? Bytes(row, row + luma.width) : before;
    difference = 0;
    for (std::size_t x = 0; x < luma.width; ++x) {
      difference += std::abs(before[x] - row[x]);
    }
  }
  EXPECT_GT(difference, 10L * static_cast<long>(before.size())) << "what the stream shows moves with the head";
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
    const std::string ports = std::to_string(stream.rtp.number()) + "-" + std::to_string(stream.rtcp.number());
    text = std::regex_replace(text, std::regex("\r\n"), "\n");
    text = std::regex_replace(text, std::regex(ports), "PORTS");
    text = std::regex_replace(text, std::regex("Session: " + stream.session), "ID");
    text = std::regex_replace(text, std::regex("Date: \\w{3}, \\d\\d \\w{3} \\d{4} [\\d:]{8} GMT"), "DATE");
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
      {"DESCRIBE rtsp://127.0.1.1:554/ RTSP/1.0\r\nCSeq: 7\r\n\r\n", "404 Not Found\r\nCSeq: 7"},
      {"SETUP rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 7\r\n\r\n", "404 Not Found\r\nCSeq: 7"},
      {"SETUP rtsp://127.0.1.1:554/object.sdp/trackID=0 RTSP/1.0\r\nCSeq: 7\r\n"
       "Transport: RTP/AVP;unicast;client_port=0-0\r\n\r\n",
       "461 Unsupported Transport"},
      {"PLAY rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 7\r\nSession: 1\r\n\r\n",
       "454 Session Not Found"},
      {"PLAY rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\n\r\n", "400 Bad Request"},
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
