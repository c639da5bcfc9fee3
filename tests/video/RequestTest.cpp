#include <gtest/gtest.h>

#include "video/Group1Request.h"
#include "video/Group2Request.h"

namespace sarnevo {
namespace {

const CQualitySettings kDefaults{.maxQualityJPEG = 16,
                                 .minQualityJPEG = 4,
                                 .maxQualityMPEG = 3000,
                                 .minQualityMPEG = 256,
                                 .bitrates = {256, 512, 768, 1000, 1500, 2000, 3000}};

StreamFormat Format(u32 width, u32 height, u32 interval, u32 quality, u32 codec,
                    u32 standard = VideoStandardPAL) {
  return {width, height, quality, interval, codec, standard};
}

std::string Group1(const StreamFormat& format, const CQualitySettings& quality = kDefaults) {
  return BuildGroup1Request(format, quality).value_or("none");
}

TEST(Group1Request, IsTheTextThatTheCameraTakes) {
  EXPECT_EQ(Group1(Format(352, 288, 40, 60, CodecMJPEG)),
            "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9&fps=25&gopsize=1&mode=mjpeg"
            "&sequence=i");
  EXPECT_EQ(Group1(Format(720, 480, 33, 60, CodecMPEG4, VideoStandardNTSC)),
            "/multimedia.cgi?action=apply&tv_standard=NTSC&resolution=d1&targetrate=2000&fps=30&gopsize=30"
            "&peakrate=3000&const_qu=0&mode=mpeg4&sequence=ip");
  EXPECT_EQ(Group1(Format(352, 288, 0, 60, CodecMJPEG)),
            "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9");
  EXPECT_EQ(Group1(Format(352, 288, 0, 60, CodecMPEG4)),
            "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&targetrate=2000");
  EXPECT_EQ(Group1(Format(352, 288, 40, 60, 0)), "none");
  EXPECT_EQ(Group1(Format(352, 288, 40, 60, 3)), "none");
}

TEST(Group1Request, MapsEachValue) {
  const struct {
    const char* part;
    StreamFormat format;
  } rows[] = {
      {"&resolution=qcif&", Format(176, 144, 40, 60, CodecMJPEG)},
      {"&resolution=cif&", Format(177, 144, 40, 60, CodecMJPEG)},
      {"&resolution=cif&", Format(176, 145, 40, 60, CodecMJPEG)},
      {"&resolution=cif&", Format(352, 288, 40, 60, CodecMJPEG)},
      {"&resolution=d1&", Format(353, 288, 40, 60, CodecMJPEG)},
      {"&resolution=d1&", Format(352, 289, 40, 60, CodecMJPEG)},
      {"&resolution=d1&", Format(720, 576, 40, 60, CodecMJPEG)},
      {"&resolution=cif&", Format(721, 576, 40, 60, CodecMJPEG)},
      {"&resolution=cif&", Format(720, 577, 40, 60, CodecMJPEG)},
      {"&resolution=qcif&", Format(0, 0, 40, 60, CodecMJPEG)},
      {"&const_qu=5&", Format(352, 288, 40, 100, CodecMJPEG)},
      {"&const_qu=17&", Format(352, 288, 40, 0, CodecMJPEG)},
      {"&const_qu=5&", Format(352, 288, 40, 99, CodecMJPEG)},
      {"&const_qu=6&", Format(352, 288, 40, 91, CodecMJPEG)},
      {"&const_qu=10&", Format(352, 288, 40, 58, CodecMJPEG)},
      {"&fps=30&", Format(352, 288, 33, 60, CodecMJPEG)},
      {"&fps=25&", Format(352, 288, 40, 60, CodecMJPEG)},
      {"&fps=15&", Format(352, 288, 66, 60, CodecMJPEG)},
      {"&fps=17&", Format(352, 288, 60, 60, CodecMJPEG)},
      {"&fps=1000&", Format(352, 288, 1, 60, CodecMJPEG)},
      {"&fps=1&", Format(352, 288, 2000, 60, CodecMJPEG)},
      {"&fps=0&", Format(352, 288, 2001, 60, CodecMJPEG)},
      {"&targetrate=256&", Format(352, 288, 40, 0, CodecMPEG4)},
      {"&targetrate=3000&", Format(352, 288, 40, 100, CodecMPEG4)},
      {"&targetrate=3000&", Format(352, 288, 40, 65535, CodecMPEG4)},  // held between the limits
      {"&targetrate=512&", Format(352, 288, 40, 10, CodecMPEG4)},      // 530
      {"&targetrate=1500&", Format(352, 288, 40, 50, CodecMPEG4)},     // 1628
  };
  for (const auto& row : rows) {
    const std::string request = Group1(row.format);
    EXPECT_NE(request.find(row.part), std::string::npos) << row.part << " in " << request;
  }
}

TEST(Group1Request, PicksTheNearestBitrate) {
  const struct {
    i32 lowest;
    i32 highest;
    u32 quality;
    std::vector<i32> bitrates;
    const char* end;  // of the request
  } rows[] = {
      {0, 100, 50, {40, 60}, "&targetrate=60"},  // a tie goes up
      {0, 100, 49, {40, 60}, "&targetrate=40"},
      {0, 100, 40, {40, 60}, "&targetrate=40"},      // the first entry itself
      {0, 100, 60, {40, 60, 80}, "&targetrate=60"},  // an entry in the middle
      {0, 100, 39, {40, 60}, "none"},
      {0, 100, 61, {40, 60}, "none"},
      {0, 100, 50, {50}, "none"},
      {0, 100, 50, {}, "none"},
      {0, 100, 50, {60, 40}, "none"},                // out of order: no pair holds it
      {0, 100, 50, {90, 10, 70}, "&targetrate=70"},  // only the second pair does
      {-2147483647, 2147483647, 50, {-10, 10}, "&targetrate=10"},
      {0, 0, 50, {0, 10}, "&targetrate=0"},
  };
  for (const auto& row : rows) {
    const CQualitySettings quality{
        .maxQualityMPEG = row.highest, .minQualityMPEG = row.lowest, .bitrates = row.bitrates};
    const std::string request = Group1(Format(352, 288, 0, row.quality, CodecMPEG4), quality);
    EXPECT_TRUE(request.ends_with(row.end)) << request << " instead of " << row.end;
  }
  // Limits that a host got the wrong way round give something and do no harm.
  EXPECT_NE(Group1(Format(352, 288, 0, 50, CodecMPEG4),
                   {.maxQualityMPEG = 0, .minQualityMPEG = 100, .bitrates = {0, 100}}),
            "none");
}

TEST(Group2Request, IsTheTextThatTheCameraTakes) {
  EXPECT_EQ(BuildGroup2Request(Format(640, 480, 40, 60, CodecMJPEG)),
            "/SetMultimedia.cgi?CH=0&Resolution=vga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=4&Stream_Mode=0&"
            "Audio=1");
  EXPECT_EQ(
      BuildGroup2Request(Format(1280, 1024, 33, 60, CodecMPEG4, VideoStandardNTSC)),
      "/SetMultimedia.cgi?CH=0&Resolution=sxga&Fps=10&Format=NTSC&Mode=mpeg4&Compression_Type=0&Bitrate=320"
      "&GOPSelect=1&Stream_Mode=0&Audio=1");
  EXPECT_EQ(BuildGroup2Request(Format(800, 600, 0, 60, 7)),
            "/SetMultimedia.cgi?CH=0&Format=PAL&Stream_Mode=0&Audio=1");
}

TEST(Group2Request, MapsEachValue) {
  const struct {
    const char* part;
    StreamFormat format;
  } rows[] = {
      {"CH=0&Resolution=sxga&", Format(1280, 1024, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=vga&", Format(640, 480, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=qvga&", Format(320, 240, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=qqvga&", Format(160, 120, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=d1&", Format(720, 480, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=d1&", Format(720, 576, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=vga&", Format(704, 480, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=vga&", Format(704, 576, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=cif&", Format(352, 240, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=cif&", Format(352, 288, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=qcif&", Format(176, 120, 40, 60, CodecMJPEG)},
      {"CH=0&Resolution=qcif&", Format(176, 144, 40, 60, CodecMJPEG)},
      {"CH=0&Fps=25&", Format(640, 481, 40, 60, CodecMJPEG)},
      {"CH=0&Fps=25&", Format(480, 640, 40, 60, CodecMJPEG)},
      {"&Fps=30&", Format(640, 480, 33, 60, CodecMJPEG)},
      {"&Fps=15&", Format(640, 480, 66, 60, CodecMJPEG)},
      {"&Fps=0&", Format(640, 480, 1001, 60, CodecMJPEG)},
      {"&Fps=10&", Format(1280, 1024, 100, 60, CodecMJPEG)},
      {"&Fps=10&", Format(1280, 1024, 66, 60, CodecMJPEG)},
      {"&Fps=5&", Format(1280, 1024, 200, 60, CodecMJPEG)},
      {"&Fps=25&", Format(1280, 960, 40, 60, CodecMJPEG)},
      {"&Jpeg_Quality=1&", Format(640, 480, 40, 19, CodecMJPEG)},
      {"&Jpeg_Quality=2&", Format(640, 480, 40, 20, CodecMJPEG)},
      {"&Jpeg_Quality=3&", Format(640, 480, 40, 59, CodecMJPEG)},
      {"&Jpeg_Quality=4&", Format(640, 480, 40, 79, CodecMJPEG)},
      {"&Jpeg_Quality=5&", Format(640, 480, 40, 80, CodecMJPEG)},
      {"&Jpeg_Quality=5&", Format(640, 480, 40, 100, CodecMJPEG)},
      {"&Jpeg_Quality=5&", Format(640, 480, 40, 65535, CodecMJPEG)},
      {"&Bitrate=64&", Format(640, 480, 40, 0, CodecMPEG4)},
      {"&Bitrate=64&", Format(640, 480, 40, 19, CodecMPEG4)},
      {"&Bitrate=96&", Format(640, 480, 40, 20, CodecMPEG4)},
      {"&Bitrate=128&", Format(640, 480, 40, 30, CodecMPEG4)},
      {"&Bitrate=192&", Format(640, 480, 40, 40, CodecMPEG4)},
      {"&Bitrate=256&", Format(640, 480, 40, 59, CodecMPEG4)},
      {"&Bitrate=320&", Format(640, 480, 40, 60, CodecMPEG4)},
      {"&Bitrate=384&", Format(640, 480, 40, 70, CodecMPEG4)},
      {"&Bitrate=448&", Format(640, 480, 40, 80, CodecMPEG4)},
      {"&Bitrate=512&", Format(640, 480, 40, 90, CodecMPEG4)},
      {"&Bitrate=576&", Format(640, 480, 40, 100, CodecMPEG4)},
      {"&Bitrate=576&", Format(640, 480, 40, 65535, CodecMPEG4)},
  };
  for (const auto& row : rows) {
    const std::string request = BuildGroup2Request(row.format);
    EXPECT_NE(request.find(row.part), std::string::npos) << row.part << " in " << request;
  }
}

}  // namespace
}  // namespace sarnevo
