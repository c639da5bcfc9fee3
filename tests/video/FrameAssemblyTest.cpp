#include "video/FrameAssembly.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "support/FakeHost.h"
#include "video/Activity.h"

namespace sarnevo {
namespace {

using kolvex_test::FakeAllocator;
using kolvex_test::FakeSink;
using kolvex_test::HostLog;
using Bytes = std::vector<u8>;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// What arrives: a payload, with its frame's end or without, or a loss.
struct Arrival {
  Bytes payload;
  bool marker = false;
  bool loss = false;
};
Arrival More(Bytes payload) { return {std::move(payload), false}; }
Arrival End(Bytes payload) { return {std::move(payload), true}; }
Arrival Loss() { return {{}, false, true}; }

// The first packet of a JPEG frame: main header, table header, tables, for group 2 the bytes before the scan.
Bytes First(JpegLayout layout, std::size_t scan, u8 width = 44, u8 height = 36, u8 type = 1, u8 q = 255) {
  Bytes payload{0, 0, 0, 0, type, q, width, height, 0, 0, 0, 128};
  payload.resize(76, 0x11);
  payload.resize(140, 0x22);
  payload.resize(layout == JpegLayout::Group1 ? 140 : 245, 0x33);
  payload.resize(payload.size() + scan, 0x44);
  return payload;
}
// A later one: main header and more of the scan.
Bytes Later(std::size_t scan) {
  Bytes payload{0, 0, 5, 0, 1, 255, 44, 36};
  payload.resize(8 + scan, 0x55);
  return payload;
}

Bytes Key(std::size_t size = 40, bool good = true) {
  Bytes frame{0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB5, 0x89, 0x13, 0x00, 0x00, 0x01, 0x00,
              0x00, 0x00, 0x01, 0x20, 0x00, 0xC4, 0x8D, 0x88, 0x00, 0xCD, 0x0B, 0x04, 0x24, 0x14, 0x63};
  frame.resize(size, 0x99);
  if (!good) {
    frame[10] = 0x23;  // another type of visual object
  }
  return frame;
}
Bytes Inter(std::size_t size = 20) {
  Bytes frame{0x00, 0x00, 0x01, 0xB6};
  frame.resize(size, 0x77);
  return frame;
}

class FrameAssemblyTest : public testing::Test {
 protected:
  FrameAssembly Assembly(u32 codec, JpegLayout layout = JpegLayout::Group1) {
    return {FrameRoute{&allocator, &sink, nullptr}, codec, layout, activity};
  }

  static void Play(FrameAssembly& assembly, const std::vector<Arrival>& arrivals) {
    for (const Arrival& arrival : arrivals) {
      if (arrival.loss) {
        assembly.Resynchronise();
      } else {
        assembly.Add(arrival.payload, arrival.marker);
      }
    }
  }

  // The sizes of the frames that came through.
  std::string Sizes() const {
    std::string text;
    for (const auto& frame : sink.Frames()) {
      text += (text.empty() ? "" : " ") + std::to_string(frame.size());
    }
    return text;
  }

  HostLog log;
  FakeAllocator allocator{log};
  FakeSink sink{log};
  Activity activity;
};

TEST_F(FrameAssemblyTest, DeliversAJpegFrameStepByStep) {
  FrameAssembly assembly = Assembly(CodecMJPEG);
  Play(assembly, {End({1}), More(First(JpegLayout::Group1, 100)), End(Later(50))});
  EXPECT_EQ(log.Text(),
            "AllocateFrame JPEG 802 ''\nGetData\nSetDataSize 755\nSetFourCC JPEG\nSetWidth 352\nSetHeight 288\n"
            "SetSizeClass 2\nFinish\nOnFrame\nReleaseFrame\n");
  const Bytes frame = sink.Frames().at(0);
  EXPECT_EQ(Bytes(frame.begin() + 605, frame.end()), Bytes(100, 0x44) + Bytes(50, 0x55));
}

TEST_F(FrameAssemblyTest, DeliversMpeg4FramesStepByStep) {
  FrameAssembly assembly = Assembly(CodecMPEG4);
  Play(assembly, {More(Key()), End(Bytes(10, 0x88)), End(Inter())});
  EXPECT_EQ(log.Text(),
            "AllocateFrame DIVX 4096 'CKolvexIPCapture'\nSetWidth 352\nSetHeight 288\nSetSizeClass 2\n"
            "SetDataSize 50\nGetData\nSetFourCC DIVX\nFinish\nOnFrame\nReleaseFrame\n"
            "AllocateFrame DIVI 4096 'CKolvexIPCapture'\nSetWidth 352\nSetHeight 288\nSetSizeClass 2\n"
            "SetDataSize 20\nGetData\nSetFourCC DIVI\nFinish\nOnFrame\nReleaseFrame\n");
  EXPECT_EQ(sink.Frames().at(0), Key() + Bytes(10, 0x88));
  EXPECT_EQ(sink.Frames().at(1), Inter());
}

TEST_F(FrameAssemblyTest, FindsTheMjpegFrames) {
  const Bytes whole = First(JpegLayout::Group1, 100);  // delivered as 705 bytes
  const struct {
    const char* name;
    std::vector<Arrival> arrivals;
    const char* sizes;
  } rows[] = {
      {"nothing before the first frame end", {More(whole), End(Later(9)), End(whole)}, "705"},
      {"a payload without its own header adds nothing",
       {End({}), More(whole), More({1, 2, 3}), More(Bytes(8)), End({})},
       "705"},
      {"one byte behind the header counts", {End({}), More(whole), End(Bytes(9))}, "706"},
      {"a loss in the middle costs that frame only",
       {End({}), More(whole), Loss(), End(Later(9)), End(whole)},
       "705"},
      {"a frame end right behind a loss only ends the loss", {End({}), Loss(), End(whole), End(whole)}, "705"},
      {"a frame without a scan is nothing",
       {End({}), End(First(JpegLayout::Group1, 0)), End(First(JpegLayout::Group1, 1))},
       "606"},
      {"a first packet that is too short is nothing", {End({}), End(Bytes(11, 1)), End({}), End(whole)}, "705"},
      {"exactly the limit", {End({}), More(First(JpegLayout::Group1, 255'860)), End({})}, "256465"},
      {"a byte beyond the limit",
       {End({}), More(First(JpegLayout::Group1, 255'860)), More(Later(1)), End(Later(1)), End(whole)},
       "705"},
      {"the byte beyond comes with the frame end",
       {End({}), End(First(JpegLayout::Group1, 255'861)), End(whole), End(whole)},
       "705"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::size_t before = Sizes().empty() ? 0 : Sizes().size() + 1;
    FrameAssembly assembly = Assembly(CodecMJPEG);
    Play(assembly, row.arrivals);
    EXPECT_EQ(Sizes().substr(std::min(before, Sizes().size())), row.sizes);
    EXPECT_EQ(allocator.Outstanding(), 0U);
  }
}

TEST_F(FrameAssemblyTest, FindsTheMpeg4Frames) {
  const struct {
    const char* name;
    std::vector<Arrival> arrivals;
    const char* sizes;
  } rows[] = {
      {"nothing before the first key frame",
       {End(Inter()), More({5}), End({6}), End(Key()), End(Inter())},
       "40 20"},
      {"later packets keep the frame's kind", {More(Key()), More({0, 0, 1}), End({0, 0, 1, 0xB7})}, "47"},
      {"a loss waits for a key frame",
       {End(Key()), End(Inter()), Loss(), End(Inter()), End(Inter()), End(Key())},
       "40 20 40"},
      {"a key frame's rest behind a loss is not taken for one",
       {More(Key()), Loss(), End({1, 2}), End(Inter()), End(Key())},
       "40"},
      {"a key frame of another kind waits for the next", {End(Key(40, false)), End(Inter()), End(Key())}, "40"},
      {"an empty frame is nothing and loses nothing", {End(Key()), End({}), End(Inter())}, "40 20"},
      {"exactly the limit", {More(Key(250'000)), End(Bytes(6000))}, "256000"},
      {"a byte beyond the limit", {More(Key(250'000)), More(Bytes(6001)), End(Inter()), End(Key())}, "40"},
      {"endless without a frame end",
       {More(Key(200'000)), More(Bytes(60'000)), More(Bytes(60'000)), More(Inter()), End(Key()), End(Key())},
       "40"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::size_t before = Sizes().empty() ? 0 : Sizes().size() + 1;
    FrameAssembly assembly = Assembly(CodecMPEG4);
    Play(assembly, row.arrivals);
    EXPECT_EQ(Sizes().substr(std::min(before, Sizes().size())), row.sizes);
    EXPECT_EQ(allocator.Outstanding(), 0U);
  }
}

TEST_F(FrameAssemblyTest, AKeyFrameThatIsCutAnywhereNeverReachesTheHostAsOne) {
  for (std::size_t size = 4; size < 29; ++size) {
    FrameAssembly assembly = Assembly(CodecMPEG4);
    Play(assembly, {End(Key(size)), End(Inter())});
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(FrameAssemblyTest, AsksForRoomInSteps) {
  const struct {
    std::size_t size;
    const char* capacity;
  } rows[] = {
      {4096, "4096 "},    {4097, "16384 "},    {16384, "16384 "},   {16385, "32768 "},   {32768, "32768 "},
      {32769, "131072 "}, {131072, "131072 "}, {131073, "131073 "}, {256000, "256000 "},
  };
  for (const auto& row : rows) {
    log.Clear();
    FrameAssembly assembly = Assembly(CodecMPEG4);
    Play(assembly, {End(Key(row.size))});
    EXPECT_TRUE(log.Text().starts_with("AllocateFrame DIVX " + std::string(row.capacity))) << log.Text();
  }
}

TEST_F(FrameAssemblyTest, TellsLargePicturesByTheCodecsOwnMeasure) {
  const struct {
    u32 codec;
    u32 width;
    const char* sizeClass;
  } rows[] = {
      {CodecMJPEG, 384, "SetSizeClass 2\n"}, {CodecMJPEG, 392, "SetSizeClass 2\n"},
      {CodecMJPEG, 400, "SetSizeClass 4\n"}, {CodecMPEG4, 380, "SetSizeClass 2\n"},
      {CodecMPEG4, 381, "SetSizeClass 4\n"}, {CodecMPEG4, 384, "SetSizeClass 4\n"},
  };
  for (const auto& row : rows) {
    log.Clear();
    FrameAssembly assembly = Assembly(row.codec);
    // An interframe takes the size that was asked for until a key frame has told better; a stream whose key
    // frame is lost behind its first packet leads there.
    assembly.SetPictureSize(row.width, 8);
    if (row.codec == CodecMJPEG) {
      Play(assembly, {End({}), End(First(JpegLayout::Group1, 1, static_cast<u8>(row.width / 8)))});
    } else {
      Play(assembly, {More({0, 0, 1, 0xB0}), End(Inter())});
    }
    EXPECT_NE(log.Text().find("SetWidth " + std::to_string(row.width) + "\n"), std::string::npos) << log.Text();
    EXPECT_NE(log.Text().find(row.sizeClass), std::string::npos) << row.width << log.Text();
  }
}

TEST_F(FrameAssemblyTest, AHostThatCantTakeAFrameLosesItAndNoMore) {
  const std::function<void()> noFrame = [this] { allocator.refuses = true; };
  const std::function<void()> noData = [this] { allocator.withoutData = true; };
  const std::function<void()> allocatorThrows = [this] {
    allocator.onAllocate = [] { throw std::runtime_error("host"); };
  };
  const std::function<void()> sinkRefuses = [this] { sink.onFrame = [] { return false; }; };
  const std::function<void()> sinkThrows = [this] { sink.onFrame = []() -> bool { throw 1; }; };
  const std::function<void()> releaseThrows = [this] { allocator.onRelease = [] { throw 1; }; };
  const struct {
    const char* name;
    const std::function<void()>& trouble;
    std::size_t jpegFrames;   // of two that come while there is trouble, those that reach the sink
    std::size_t mpeg4Frames;  // of a key frame and an interframe
  } rows[] = {
      {"no frame", noFrame, 0, 0},
      {"no data area", noData, 0, 0},
      {"allocator throws", allocatorThrows, 0, 0},
      {"sink refuses", sinkRefuses, 2, 1},
      {"sink throws", sinkThrows, 2, 1},
      {"release throws", releaseThrows, 2, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const u32 codec : {CodecMJPEG, CodecMPEG4}) {
      const bool jpeg = codec == CodecMJPEG;
      const Bytes first = jpeg ? First(JpegLayout::Group1, 1) : Key();
      const Bytes second = jpeg ? First(JpegLayout::Group1, 1) : Inter();
      FrameAssembly assembly = Assembly(codec);
      log.Clear();
      row.trouble();
      Play(assembly, {End({}), End(first), End(second)});
      EXPECT_EQ(log.Count("OnFrame"), jpeg ? row.jpegFrames : row.mpeg4Frames);
      allocator.refuses = allocator.withoutData = false;
      allocator.onAllocate = allocator.onRelease = nullptr;
      sink.onFrame = nullptr;
      log.Clear();
      Play(assembly, {End(first), End(second)});
      EXPECT_EQ(log.Count("OnFrame"), 2U);
    }
  }
  EXPECT_EQ(log.Count("ReleaseFrame of"), 0U);
}

TEST_F(FrameAssemblyTest, WithoutAnAllocatorNothingHappensAndWithoutASinkEachFrameIsRefused) {
  FrameAssembly nowhere({nullptr, &sink, nullptr}, CodecMPEG4, JpegLayout::Group1, activity);
  Play(nowhere, {End(Key(40, false))});
  EXPECT_FALSE(nowhere.NeedsSync());
  FrameAssembly unseen({&allocator, nullptr, nullptr}, CodecMPEG4, JpegLayout::Group1, activity);
  Play(unseen, {End(Key())});
  EXPECT_TRUE(unseen.NeedsSync());
  EXPECT_EQ(log.Count("AllocateFrame"), 1U);
  EXPECT_EQ(log.Count("ReleaseFrame"), 1U);
}

TEST(Activity, LastsForTheTimeoutAndSurvivesAClockThatIsPutBack) {
  static u64 now = 0;
  Activity activity([]() noexcept { return now; });
  constexpr platform::Milliseconds kTimeout{5000};
  now = 133'000'000'000'000'000;
  EXPECT_FALSE(activity.IsActive(kTimeout));
  activity.Touch();
  now += 5000 * 10'000 + 9'999;
  EXPECT_TRUE(activity.IsActive(kTimeout));
  now += 1;
  EXPECT_FALSE(activity.IsActive(kTimeout));
  now -= 1'000'000'000'000;
  EXPECT_TRUE(activity.IsActive(kTimeout));
}

}  // namespace
}  // namespace sarnevo
