#include <gtest/gtest.h>

#include <string>
#include <vector>

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
StreamFormat Size(u32 width, u32 height) { return Format(width, height, 40, 60, CodecMJPEG); }
StreamFormat Interval(u32 interval) { return Format(640, 480, interval, 60, CodecMJPEG); }
StreamFormat SxgaInterval(u32 interval) { return Format(1280, 1024, interval, 60, CodecMJPEG); }
StreamFormat Jpeg(u32 quality) { return Format(640, 480, 40, quality, CodecMJPEG); }
StreamFormat Mpeg4(u32 quality) { return Format(640, 480, 40, quality, CodecMPEG4); }

std::string Group1(const StreamFormat& format, const CQualitySettings& quality = kDefaults) {
  return BuildGroup1Request(format, quality).value_or("none");
}

TEST(Request, IsTheTextThatTheCameraTakes) {
  EXPECT_EQ(Group1(Format(352, 288, 40, 60, CodecMJPEG)),
            "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9&fps=25&gopsize=1&mode=mjpeg"
            "&sequence=i");
  EXPECT_EQ(Group1(Format(720, 480, 33, 60, CodecMPEG4, VideoStandardNTSC)),
            "/multimedia.cgi?action=apply&tv_standard=NTSC&resolution=d1&targetrate=2000&fps=30&gopsize=30"
            "&peakrate=3000&const_qu=0&mode=mpeg4&sequence=ip");
  EXPECT_EQ(Group1(Format(352, 288, 0, 60, CodecMPEG4)),
            "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&targetrate=2000");
  EXPECT_EQ(Group1(Format(352, 288, 40, 60, 3)), "none");
  EXPECT_EQ(BuildGroup2Request(Size(640, 480)),
            "/SetMultimedia.cgi?CH=0&Resolution=vga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=4&Stream_Mode=0&"
            "Audio=1");
  EXPECT_EQ(
      BuildGroup2Request(Format(1280, 1024, 33, 60, CodecMPEG4, VideoStandardNTSC)),
      "/SetMultimedia.cgi?CH=0&Resolution=sxga&Fps=10&Format=NTSC&Mode=mpeg4&Compression_Type=0&Bitrate=320"
      "&GOPSelect=1&Stream_Mode=0&Audio=1");
  EXPECT_EQ(BuildGroup2Request(Format(800, 600, 0, 60, 7)),
            "/SetMultimedia.cgi?CH=0&Format=PAL&Stream_Mode=0&Audio=1");
}

TEST(Request, MapsEachValue) {
  struct Part {
    const char* text;
    StreamFormat format;
  };
  const Part group1[] = {
      {"&resolution=qcif&", Size(0, 0)},    {"&resolution=qcif&", Size(176, 144)},
      {"&resolution=cif&", Size(177, 144)}, {"&resolution=cif&", Size(176, 145)},
      {"&resolution=cif&", Size(352, 288)}, {"&resolution=d1&", Size(353, 288)},
      {"&resolution=d1&", Size(352, 289)},  {"&resolution=d1&", Size(720, 576)},
      {"&resolution=cif&", Size(721, 576)}, {"&resolution=cif&", Size(720, 577)},
      {"&const_qu=5&", Jpeg(99)},           {"&const_qu=6&", Jpeg(91)},
      {"&const_qu=10&", Jpeg(58)},          {"&const_qu=17&", Jpeg(0)},
      {"&fps=17&", Interval(60)},           {"&fps=0&", Interval(2001)},
      {"&targetrate=256&", Mpeg4(0)},       {"&targetrate=512&", Mpeg4(10)},  // 530
      {"&targetrate=1500&", Mpeg4(50)},     {"&targetrate=3000&", Mpeg4(65535)},
  };
  for (const Part& part : group1) {
    EXPECT_NE(Group1(part.format).find(part.text), std::string::npos) << part.text;
  }
  const Part group2[] = {
      {"=0&Resolution=qvga&", Size(320, 240)},
      {"=0&Resolution=qqvga&", Size(160, 120)},
      {"=0&Resolution=d1&", Size(720, 480)},
      {"=0&Resolution=d1&", Size(720, 576)},
      {"=0&Resolution=vga&", Size(704, 480)},
      {"=0&Resolution=vga&", Size(704, 576)},
      {"=0&Resolution=cif&", Size(352, 240)},
      {"=0&Resolution=cif&", Size(352, 288)},
      {"=0&Resolution=qcif&", Size(176, 120)},
      {"=0&Resolution=qcif&", Size(176, 144)},
      {"CH=0&Fps=25&", Size(1280, 960)},
      {"CH=0&Fps=25&", Size(640, 481)},
      {"&Fps=10&", SxgaInterval(66)},
      {"&Fps=5&", SxgaInterval(200)},
      {"&Jpeg_Quality=1&", Jpeg(19)},
      {"&Jpeg_Quality=2&", Jpeg(20)},
      {"&Jpeg_Quality=5&", Jpeg(65535)},
      {"&Bitrate=64&", Mpeg4(19)},
      {"&Bitrate=96&", Mpeg4(20)},
      {"&Bitrate=576&", Mpeg4(65535)},
  };
  for (const Part& part : group2) {
    EXPECT_NE(BuildGroup2Request(part.format).find(part.text), std::string::npos) << part.text;
  }
}

TEST(Request, PicksTheNearestBitrate) {
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
      {0, 100, 50, {90, 10, 70}, "&targetrate=70"},  // out of order: only the second pair holds it
      {-2147483647, 2147483647, 50, {-10, 10}, "&targetrate=10"},
      {100, 0, 50, {0, 100}, "&targetrate=100"},  // limits the wrong way round
  };
  for (const auto& row : rows) {
    const CQualitySettings quality{
        .maxQualityMPEG = row.highest, .minQualityMPEG = row.lowest, .bitrates = row.bitrates};
    const std::string request = Group1(Format(352, 288, 0, row.quality, CodecMPEG4), quality);
    EXPECT_TRUE(request.ends_with(row.end)) << request << " instead of " << row.end;
  }
}

}  // namespace
}  // namespace sarnevo
