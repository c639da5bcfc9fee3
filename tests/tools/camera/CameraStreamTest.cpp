#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

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

}  // namespace
