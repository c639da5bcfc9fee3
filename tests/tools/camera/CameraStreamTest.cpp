#include <gtest/gtest.h>

#include <algorithm>

#include "CameraClient.h"
#include "PictureReader.h"
#include "simcam/CameraFarm.h"
#include "simcam/FrameCounter.h"

namespace {

using namespace simcam;
using namespace simcam_test;

struct Row {
  const char* name;
  int group;
  const char* configuration;
  unsigned width, height, fps;
  bool mpeg4;
  unsigned keyEvery;  // MPEG-4
};

constexpr const char* kGroup1 = "/multimedia.cgi?action=apply";
constexpr const char* kGroup2 = "/SetMultimedia.cgi?CH=0";

const Row kRows[] = {
    {"group 1 JPEG, PAL, best", 1,
     "&tv_standard=PAL&resolution=d1&const_qu=5&fps=25&gopsize=1&mode=mjpeg&sequence=i", 720, 576, 25, false,
     0},
    {"group 1 JPEG, NTSC, worst", 1,
     "&tv_standard=NTSC&resolution=qcif&const_qu=17&fps=30&gopsize=1&mode=mjpeg&sequence=i", 176, 112, 30,
     false, 0},
    {"group 1 MPEG-4, one second between keys", 1,
     "&tv_standard=PAL&resolution=cif&targetrate=1500&fps=25&gopsize=25&peakrate=3000&const_qu=0&mode=mpeg4"
     "&sequence=ip",
     352, 288, 25, true, 25},
    {"group 1 MPEG-4, worst", 1,
     "&tv_standard=NTSC&resolution=qcif&targetrate=256&fps=10&gopsize=10&peakrate=3000&const_qu=0&mode=mpeg4"
     "&sequence=ip",
     176, 112, 10, true, 10},
    {"group 2 JPEG, full sensor, best", 2,
     "&Resolution=sxga&Fps=10&Format=PAL&Mode=mjpeg&Jpeg_Quality=5&Stream_Mode=0&Audio=1", 1280, 1024, 10,
     false, 0},
    {"group 2 JPEG, smallest, worst", 2,
     "&Resolution=qqvga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=1&Stream_Mode=0&Audio=1", 160, 120, 25, false,
     0},
    {"group 2 MPEG-4, large picture, lowest rate", 2,
     "&Resolution=d1&Fps=25&Format=NTSC&Mode=mpeg4&Compression_Type=0&Bitrate=64&GOPSelect=1&Stream_Mode=0&"
     "Audio=1",
     720, 480, 25, true, 25},
    {"group 2 MPEG-4, smallest, lowest rate", 2,
     "&Resolution=qqvga&Fps=25&Format=PAL&Mode=mpeg4&Compression_Type=0&Bitrate=64&GOPSelect=1&Stream_Mode=0"
     "&Audio=1",
     160, 120, 25, true, 25},
};

/// RFC 2435, 3.1: the offset of a packet is that of its scan bytes; and nothing but the first packet differs
/// in the other fields.
void ExpectJpegPackets(const std::vector<Datagram>& frame, int group) {
  std::size_t offset = 0;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    const std::vector<std::uint8_t>& bytes = frame[i].bytes;
    EXPECT_EQ(frame[i].word(12) & 0xFFFFFFU, offset) << "packet " << i;
    const std::size_t beforeScan = i > 0 ? 8U : group == 2 ? 245U : 140U;
    offset += bytes.size() - 12 - beforeScan;
    EXPECT_GE(bytes[12 + 5], 128) << "tables travel in band";
  }
  EXPECT_EQ(frame[0].word(20), 128U) << "quantization table header: 8-bit tables of 128 bytes";
  const std::vector<std::uint8_t>& last = frame.back().bytes;
  EXPECT_TRUE(last.end()[-2] == 0xFF && last.end()[-1] == 0xD9) << "the scan goes out with EOI";
}

TEST(CameraStream, CarriesPicturesThatDecodeWithoutAWordAndCountOn) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    const std::string address = row.group == 1 ? "127.0.1.1" : "127.0.2.1";
    const std::string reply = Get(address, std::string(row.group == 1 ? kGroup1 : kGroup2) + row.configuration);
    ASSERT_TRUE(reply.starts_with("HTTP/1.1 200")) << reply;

    Stream stream(address, row.group);
    Mpeg4Reader mpeg4;
    std::optional<std::uint32_t> lastCounter;
    std::optional<std::uint16_t> lastSequence;
    std::optional<std::uint32_t> firstStamp;
    std::uint32_t stamp = 0;
    const unsigned frames = std::max(12U, row.keyEvery + 3);
    for (unsigned number = 0; number < frames; ++number) {
      const std::vector<Datagram> frame = stream.NextFrame();
      ASSERT_FALSE(frame.empty()) << "no frame " << number;
      for (const Datagram& datagram : frame) {
        ASSERT_GT(datagram.bytes.size(), 12U);
        EXPECT_LE(datagram.bytes.size(), 1412U);
        EXPECT_EQ(datagram.bytes[0], 0x80);
        EXPECT_EQ(datagram.bytes[1] & 0x7F, row.mpeg4 ? 96 : 26);
        EXPECT_EQ(datagram.word(4), frame[0].word(4)) << "one time stamp a frame";
        if (lastSequence) {
          EXPECT_EQ(datagram.sequence(), static_cast<std::uint16_t>(*lastSequence + 1));
        }
        lastSequence = datagram.sequence();
      }
      stamp = frame[0].word(4);
      firstStamp = firstStamp.value_or(stamp);

      Luma luma;
      if (row.mpeg4) {
        const std::vector<std::uint8_t> bytes = Joined(frame);
        const bool key = number % row.keyEvery == 0;
        EXPECT_EQ(frame[0].word(12), key ? 0x000001B0U : 0x000001B6U) << "frame " << number;
        luma = mpeg4.Decode(bytes);
      } else {
        ExpectJpegPackets(frame, row.group);
        luma = DecodeJpeg(JpegOf(frame, row.group));
      }
      EXPECT_EQ(luma.complaint, "") << "frame " << number;
      ASSERT_EQ(luma.width, row.width);
      ASSERT_EQ(luma.height, row.height);
      const auto counter = ReadFrameCounter(luma.pixels.data(), luma.width, luma.height, luma.width);
      ASSERT_TRUE(counter) << "frame " << number << " shows no counter";
      if (lastCounter) {
        EXPECT_EQ(*counter, *lastCounter + 1);
      }
      lastCounter = counter;
    }
    // 90 kHz. A busy machine makes the first frame late and leaves ticks out, but it adds none.
    const double seconds = (stamp - *firstStamp) / 90'000.0;
    EXPECT_GT(seconds, 0.5 * (frames - 1) / row.fps);
    EXPECT_LT(seconds, 20.0 * frames / row.fps);
    EXPECT_TRUE(stream.Request("TEARDOWN").starts_with("RTSP/1.0 200 OK\r\n"));
  }
}

std::optional<std::uint32_t> CounterOf(const std::vector<Datagram>& frame, int group) {
  const Luma luma = DecodeJpeg(JpegOf(frame, group));
  return ReadFrameCounter(luma.pixels.data(), luma.width, luma.height, luma.width);
}

TEST(CameraStream, SharesAnEncoderUntilACameraShowsSomethingOfItsOwn) {
  CameraFarm farm;
  std::vector<SimulatedCamera*> cameras;
  for (int i = 1; i <= 3; ++i) {
    cameras.push_back(
        &farm.Add({.group = Group::One, .address = "127.0.3." + std::to_string(i), .caption = "fleet"}));
  }
  Stream one("127.0.3.1", 1);
  Stream two("127.0.3.2", 1);
  Stream three("127.0.3.3", 1);
  ASSERT_FALSE(one.NextFrame().empty());
  ASSERT_FALSE(two.NextFrame().empty());
  ASSERT_FALSE(three.NextFrame().empty());
  EXPECT_EQ(farm.encoders(), 1U);
  EXPECT_NE(one.NextFrame()[0].word(8), two.NextFrame()[0].word(8)) << "the SSRC is each stream's own";

  std::uint32_t last = CounterOf(two.NextFrame(), 1).value_or(0);
  ASSERT_NE(last, 0U);
  EXPECT_EQ(BodyOf(Get("127.0.3.2", "/gpio.cgi?action=apply&relayid=1&value=1")), "ret=200&method=apply\r\n");
  EXPECT_EQ(farm.encoders(), 2U);
  for (int i = 0; i < 10; ++i) {
    const auto counter = CounterOf(two.NextFrame(), 1);
    ASSERT_TRUE(counter);
    // The new encoder takes over where the shared one was; at the joint one number may be skipped or doubled.
    EXPECT_NEAR(static_cast<double>(*counter), last + 1.0, 1.0);
    last = *counter;
  }
  EXPECT_TRUE(cameras[1]->Status().outputs[0]);
}

TEST(CameraStream, EndsWithItsConnectionAndPausesOnRequest) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  {
    Stream first("127.0.2.1", 2);
    Stream second("127.0.2.1", 2);
    ASSERT_FALSE(first.NextFrame().empty());
    ASSERT_FALSE(second.NextFrame().empty());
    EXPECT_EQ(camera.Status().playing, 2U);
    first.Request("PAUSE");
    EXPECT_EQ(camera.Status().playing, 1U);
    EXPECT_EQ(camera.Status().sessions, 2U);
    first.Request("PLAY");
    EXPECT_EQ(camera.Status().playing, 2U);
  }
  EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.sessions == 0; }, std::chrono::seconds(5)));
  EXPECT_EQ(farm.encoders(), 0U);
}

}  // namespace
