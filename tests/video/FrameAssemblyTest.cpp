// How frames go to a host. Which frames a stream's packets make is asked of the channel (fuzz/corpus/ChannelPackets).
#include "video/FrameAssembly.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "support/FakeHost.h"
#include "support/ScriptedCamera.h"
#include "video/Activity.h"

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

const Bytes kJpeg = kolvex_test::JpegFramePacket(1);  // with a scan of 60 zeros
const Bytes kKey = kolvex_test::Mpeg4KeyFramePacket();
const Bytes kInter{0x00, 0x00, 0x01, 0xB6, 0x77};

class FrameAssemblyTest : public testing::Test {
 protected:
  FrameAssembly Assembly(u32 codec) {
    return {FrameRoute{&allocator, &sink, std::make_shared<FrameReturns>()}, codec, JpegLayout::Group1,
            activities[codec]};
  }

  bool IsActive(u32 codec) { return activities[codec].IsActive(platform::Milliseconds(3'600'000)); }

  kolvex_test::HostLog log;
  kolvex_test::FakeAllocator allocator{log};
  kolvex_test::FakeSink sink{log};
  std::map<u32, Activity> activities;
};

TEST_F(FrameAssemblyTest, DeliversFramesStepByStep) {
  FrameAssembly jpeg = Assembly(CodecMJPEG);
  jpeg.Add({}, true);
  jpeg.Add(kJpeg, false);
  EXPECT_FALSE(IsActive(CodecMJPEG));
  jpeg.Add(Bytes(58, 0x55), true);  // 8 of them are its header
  EXPECT_TRUE(IsActive(CodecMJPEG)) << "a frame is a sign of life";
  EXPECT_EQ(log.Text(),
            "AllocateFrame JPEG 762 ''\nGetData\nSetDataSize 715\nSetFourCC JPEG\nSetWidth 352\nSetHeight 288\n"
            "SetSizeClass 2\nFinish\nOnFrame\nReleaseFrame\n");
  const Bytes frame = sink.Frames().at(0);
  EXPECT_EQ(Bytes(frame.begin() + 665, frame.end()), Bytes(50, 0x55));

  log.Clear();
  FrameAssembly mpeg4 = Assembly(CodecMPEG4);
  // A key frame that is lost after its first packet leaves the size that was asked for.
  mpeg4.SetPictureSize({381, 8});
  mpeg4.Add(Bytes(kKey.begin(), kKey.begin() + 4), false);
  mpeg4.Resynchronise();
  mpeg4.Add(Bytes(10, 0x88), true);
  EXPECT_FALSE(IsActive(CodecMPEG4)) << "the torn tail of a key frame is no sign of life";
  mpeg4.Add(Bytes(kKey.begin(), kKey.begin() + 4), false);
  EXPECT_FALSE(IsActive(CodecMPEG4));
  mpeg4.Add(kInter, true);
  EXPECT_TRUE(IsActive(CodecMPEG4));
  mpeg4.Add(kKey, false);
  mpeg4.Add(Bytes(10, 0x88), true);
  EXPECT_EQ(log.Text(),
            "AllocateFrame DIVI 4096 'CKolvexIPCapture'\nSetWidth 381\nSetHeight 8\nSetSizeClass 4\n"
            "SetDataSize 9\nGetData\nSetFourCC DIVI\nFinish\nOnFrame\nReleaseFrame\n"
            "AllocateFrame DIVX 4096 'CKolvexIPCapture'\nSetWidth 352\nSetHeight 288\nSetSizeClass 2\n"
            "SetDataSize 41\nGetData\nSetFourCC DIVX\nFinish\nOnFrame\nReleaseFrame\n");
}

TEST_F(FrameAssemblyTest, AsksForRoomInSteps) {
  const std::pair<std::size_t, const char*> rows[] = {
      {4096, "4096 "},    {4097, "16384 "},    {16384, "16384 "},   {16385, "32768 "},   {32768, "32768 "},
      {32769, "131072 "}, {131072, "131072 "}, {131073, "131073 "}, {256000, "256000 "},
  };
  for (const auto& [size, capacity] : rows) {
    log.Clear();
    Bytes key = kKey;
    key.resize(size);
    Assembly(CodecMPEG4).Add(key, true);
    EXPECT_TRUE(log.Text().starts_with("AllocateFrame DIVX " + std::string(capacity))) << log.Text();
  }
}

TEST_F(FrameAssemblyTest, GivesNothingToAHostWithoutAnAllocator) {
  for (const u32 codec : {CodecMJPEG, CodecMPEG4}) {
    FrameAssembly nowhere({nullptr, &sink, nullptr}, codec, JpegLayout::Group1, activities[codec]);
    nowhere.Add(kKey, true);
    nowhere.Add(kJpeg, true);
  }
  EXPECT_EQ(log.Text(), "");
}

TEST(Activity, LastsForTheTimeoutAndSurvivesAClockThatIsPutBack) {
  static u64 now = 0;
  Activity activity([]() noexcept { return now; });
  constexpr platform::Milliseconds kTimeout{5000};
  now = 133'000'000'000'000'000;
  EXPECT_FALSE(activity.IsActive(kTimeout));
  activity.TouchActivity();
  now += 5000 * 10'000 + 9'999;
  EXPECT_TRUE(activity.IsActive(kTimeout));
  now += 1;
  EXPECT_FALSE(activity.IsActive(kTimeout));
  now -= 1'000'000'000'000;
  EXPECT_TRUE(activity.IsActive(kTimeout));
}

}  // namespace
}  // namespace sarnevo
