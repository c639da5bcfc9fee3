#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "video/CGroup1CameraChannel.h"
#include "video/CGroup2CameraChannel.h"

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

TEST(Request, MapsEachValueForEachGroup) {
  const struct {
    u32 width;
    u32 height;
    std::string group1;
    std::string group2;
  } sizes[] = {
      {0, 0, "qcif", ""},       {176, 144, "qcif", "qcif"}, {177, 144, "cif", ""},
      {176, 145, "cif", ""},    {352, 288, "cif", "cif"},   {353, 288, "d1", ""},
      {352, 289, "d1", ""},     {720, 576, "d1", "d1"},     {721, 576, "cif", ""},
      {720, 577, "cif", ""},    {320, 240, "cif", "qvga"},  {160, 120, "qcif", "qqvga"},
      {720, 480, "d1", "d1"},   {704, 480, "d1", "vga"},    {704, 576, "d1", "vga"},
      {352, 240, "cif", "cif"}, {176, 120, "qcif", "qcif"}, {1280, 960, "cif", ""},
      {640, 481, "d1", ""},
  };
  for (const auto& [width, height, group1, group2] : sizes) {
    EXPECT_NE(Group1(Size(width, height)).find("&resolution=" + group1 + "&"), std::string::npos) << width;
    const std::string begin =
        "/SetMultimedia.cgi?CH=0" + (group2.empty() ? "" : "&Resolution=" + group2) + "&Fps=";
    EXPECT_TRUE(BuildGroup2Request(Size(width, height)).starts_with(begin)) << begin;
  }
  const auto expect = [](const StreamFormat& format, const std::string& group1, const std::string& group2) {
    EXPECT_NE(Group1(format).find("&" + group1 + "&"), std::string::npos) << group1;
    EXPECT_NE(BuildGroup2Request(format).find("&" + group2 + "&"), std::string::npos) << group2;
  };
  using Row = std::array<u32, 3>;  // a value and what the groups make of it
  for (const auto& [quality, group1, group2] :
       {Row{99, 5, 5}, Row{91, 6, 5}, Row{58, 10, 3}, Row{20, 14, 2}, Row{19, 14, 1}, Row{0, 17, 1}}) {
    expect(Jpeg(quality), "const_qu=" + std::to_string(group1), "Jpeg_Quality=" + std::to_string(group2));
  }
  for (const auto& [quality, group1, group2] : {Row{0, 256, 64}, Row{10, 512, 64}, Row{19, 768, 64},
                                                Row{20, 768, 96}, Row{50, 1500, 256}, Row{65535, 3000, 576}}) {
    expect(Mpeg4(quality), "targetrate=" + std::to_string(group1), "Bitrate=" + std::to_string(group2));
  }
  for (const auto& [interval, group1, group2] : {Row{60, 17, 10}, Row{200, 5, 5}, Row{2001, 0, 0}}) {
    expect(Format(1280, 1024, interval, 60, CodecMJPEG), "fps=" + std::to_string(group1),
           "Fps=" + std::to_string(group2));
  }
  expect(Format(640, 480, 60, 60, CodecMJPEG), "fps=17", "Fps=16");
  expect(Jpeg(65535), "fps=25", "Jpeg_Quality=5");
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
