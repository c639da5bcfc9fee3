#include "video/FrameAssembly.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "support/CountAllocations.h"
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
Arrival More(Bytes payload) { return {std::move(payload)}; }
Arrival End(Bytes payload) { return {std::move(payload), true}; }
Arrival Loss() { return {{}, false, true}; }

// The first packet of a JPEG frame of group 1: main header, table header, tables, scan.
Bytes First(std::size_t scan, u8 width = 44) {
  Bytes payload{0, 0, 0, 0, 1, 255, width, 36, 0, 0, 0, 128};
  payload.resize(140, 0x11);
  payload.resize(140 + scan, 0x44);
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
  FrameAssembly Assembly(u32 codec) {
    return {FrameRoute{&allocator, &sink, nullptr}, codec, JpegLayout::Group1, activity};
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

  HostLog log;
  FakeAllocator allocator{log};
  FakeSink sink{log};
  Activity activity;
};

TEST_F(FrameAssemblyTest, DeliversFramesStepByStep) {
  FrameAssembly jpeg = Assembly(CodecMJPEG);
  Play(jpeg, {End({1}), More(First(100)), End(Later(50))});
  EXPECT_EQ(log.Text(),
            "AllocateFrame JPEG 802 ''\nGetData\nSetDataSize 755\nSetFourCC JPEG\nSetWidth 352\nSetHeight 288\n"
            "SetSizeClass 2\nFinish\nOnFrame\nReleaseFrame\n");
  const Bytes frame = sink.Frames().at(0);
  EXPECT_EQ(Bytes(frame.begin() + 605, frame.end()), Bytes(100, 0x44) + Bytes(50, 0x55));

  log.Clear();
  FrameAssembly mpeg4 = Assembly(CodecMPEG4);
  Play(mpeg4, {More(Key()), End(Bytes(10, 0x88)), End(Inter())});
  EXPECT_EQ(log.Text(),
            "AllocateFrame DIVX 4096 'CKolvexIPCapture'\nSetWidth 352\nSetHeight 288\nSetSizeClass 2\n"
            "SetDataSize 50\nGetData\nSetFourCC DIVX\nFinish\nOnFrame\nReleaseFrame\n"
            "AllocateFrame DIVI 4096 'CKolvexIPCapture'\nSetWidth 352\nSetHeight 288\nSetSizeClass 2\n"
            "SetDataSize 20\nGetData\nSetFourCC DIVI\nFinish\nOnFrame\nReleaseFrame\n");
  EXPECT_EQ(sink.Frames().at(1), Key() + Bytes(10, 0x88));
  EXPECT_EQ(sink.Frames().at(2), Inter());
}

TEST_F(FrameAssemblyTest, FindsTheFrames) {
  const Bytes whole = First(100);  // delivered as 705 bytes
  const struct {
    u32 codec;
    const char* name;
    std::vector<Arrival> arrivals;
    std::vector<std::size_t> sizes;  // of the frames that come through
  } rows[] = {
      {CodecMJPEG, "nothing before a frame end", {More(whole), End(Later(9)), End(whole)}, {705}},
      {CodecMJPEG,
       "only the main header",
       {End({}), More(whole), More({1, 2}), More(Bytes(8)), End(Bytes(9))},
       {706}},
      {CodecMJPEG, "a loss", {End({}), More(whole), Loss(), End(Later(9)), End(whole)}, {705}},
      {CodecMJPEG, "a frame end behind a loss", {Loss(), End(whole), End(whole)}, {705}},
      {CodecMJPEG, "a frame without a scan", {End({}), End(First(0)), End(First(1))}, {606}},
      {CodecMJPEG, "too short a first packet", {End({}), End(Bytes(11, 1)), End({}), End(whole)}, {705}},
      {CodecMJPEG, "exactly the limit", {End({}), More(First(255'860)), End({})}, {256'465}},
      {CodecMJPEG, "the end beyond", {End({}), End(First(255'861)), End(whole), End(whole)}, {705}},
      {CodecMPEG4, "nothing before a key frame", {End(Inter()), End({6}), End(Key()), End(Inter())}, {40, 20}},
      {CodecMPEG4, "the first packet's kind", {More(Key()), More({0, 0, 1}), End({0, 0, 1, 0xB7})}, {47}},
      {CodecMPEG4, "a loss", {End(Key()), End(Inter()), Loss(), End(Inter()), End(Key())}, {40, 20, 40}},
      {CodecMPEG4, "an unfit key frame", {End(Key(40, false)), End(Inter()), End(Key())}, {40}},
      {CodecMPEG4, "an empty frame", {End(Key()), End({}), End(Inter())}, {40, 20}},
      {CodecMPEG4, "exactly the limit", {More(Key(250'000)), End(Bytes(6000))}, {256'000}},
      {CodecMPEG4, "a byte beyond", {More(Key(250'000)), More(Bytes(6001)), End(Inter()), End(Key())}, {40}},
      {CodecMPEG4,
       "endless",
       {More(Key(200'000)), More(Bytes(60'000)), More(Bytes(60'000)), End(Key()), End(Key(41))},
       {41}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::size_t before = sink.Frames().size();
    FrameAssembly assembly = Assembly(row.codec);
    Play(assembly, row.arrivals);
    std::vector<std::size_t> sizes;
    for (const Bytes& frame : sink.Frames()) {
      sizes.push_back(frame.size());
    }
    EXPECT_EQ(std::vector(sizes.begin() + static_cast<std::ptrdiff_t>(before), sizes.end()), row.sizes);
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
  const std::pair<std::size_t, const char*> rows[] = {
      {4096, "4096 "},    {4097, "16384 "},    {16384, "16384 "},   {16385, "32768 "},   {32768, "32768 "},
      {32769, "131072 "}, {131072, "131072 "}, {131073, "131073 "}, {256000, "256000 "},
  };
  for (const auto& [size, capacity] : rows) {
    log.Clear();
    FrameAssembly assembly = Assembly(CodecMPEG4);
    Play(assembly, {End(Key(size))});
    EXPECT_TRUE(log.Text().starts_with("AllocateFrame DIVX " + std::string(capacity))) << log.Text();
  }
}

TEST_F(FrameAssemblyTest, TellsLargePicturesByTheCodecsOwnMeasure) {
  const struct {
    u32 codec;
    u32 width;
    u32 sizeClass;
  } rows[] = {{CodecMJPEG, 392, 2}, {CodecMJPEG, 400, 4}, {CodecMPEG4, 380, 2}, {CodecMPEG4, 381, 4}};
  for (const auto& row : rows) {
    log.Clear();
    FrameAssembly assembly = Assembly(row.codec);
    // An interframe takes the size that was asked for until a key frame has told better; a stream whose key
    // frame is lost behind its first packet leads there.
    assembly.SetPictureSize(row.width, 8);
    if (row.codec == CodecMJPEG) {
      Play(assembly, {End({}), End(First(1, static_cast<u8>(row.width / 8)))});
    } else {
      Play(assembly, {More({0, 0, 1, 0xB0}), End(Inter())});
    }
    EXPECT_EQ(log.Count("SetWidth " + std::to_string(row.width)), 1U) << log.Text();
    EXPECT_EQ(log.Count("SetSizeClass " + std::to_string(row.sizeClass)), 1U) << row.width << log.Text();
  }
}

TEST_F(FrameAssemblyTest, AHostThatCantTakeAFrameLosesItAndNoMore) {
  const struct {
    const char* name;
    std::function<void()> trouble;
    std::size_t jpegFrames;   // of two that come while there is trouble, those that reach the sink
    std::size_t mpeg4Frames;  // of a key frame and an interframe
  } rows[] = {
      {"no frame", [this] { allocator.refuses = true; }, 0, 0},
      {"no data area", [this] { allocator.withoutData = true; }, 0, 0},
      {"allocator throws", [this] { allocator.onAllocate = [] { throw std::runtime_error("host"); }; }, 0, 0},
      {"sink refuses", [this] { sink.onFrame = [] { return false; }; }, 2, 1},
      {"sink throws", [this] { sink.onFrame = []() -> bool { throw 1; }; }, 2, 1},
      {"release throws", [this] { allocator.onRelease = [] { throw 1; }; }, 2, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const u32 codec : {CodecMJPEG, CodecMPEG4}) {
      const bool jpeg = codec == CodecMJPEG;
      const Bytes first = jpeg ? First(1) : Key();
      const Bytes second = jpeg ? first : Inter();
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
  FrameAssembly nowhere({nullptr, &sink, nullptr}, CodecMPEG4, JpegLayout::Group1, activity);
  Play(nowhere, {End(Key()), End(Inter())});
  EXPECT_EQ(log.Count("OnFrame"), 2U);
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

// A host whose one frame is there from the start.
class FrugalHost : public ipcapture::IFrame, public ipcapture::IFrameAllocator, public ipcapture::IFrameSink {
 public:
  u32 frames = 0;

  u8* GetData() override { return data_.data(); }
  void SetDataSize(u32) override {}
  void Finish() override {}
  void SetFourCC(u32) override {}
  void SetHeight(u32) override {}
  void SetWidth(u32) override {}
  void SetSizeClass(u32) override {}
  ipcapture::IFrame* AllocateFrame(u32, u32, const char*) override { return this; }
  void ReleaseFrame(ipcapture::IFrame*) override {}
  bool OnFrame(ipcapture::IFrame*) override { return ++frames > 0; }
  void OnNoData() override {}

 private:
  std::vector<u8> data_ = std::vector<u8>(kMaxFrameBytes + 1000);
};

TEST(FrameAssembly, TakesNothingFromTheHeapOnceItHasGrown) {
  for (const u32 codec : {CodecMJPEG, CodecMPEG4}) {
    FrugalHost host;
    Activity activity;
    FrameAssembly assembly({&host, &host, nullptr}, codec, JpegLayout::Group1, activity);
    const Bytes first = codec == CodecMJPEG ? First(1) : Key();
    const Bytes more(1400, 0x55);
    std::size_t allocations = 0;
    for (int i = 0; i < 102; ++i) {
      if (i == 2) {  // buffers have grown
        allocations = kolvex_test::Allocations();
      }
      assembly.Add(first, false);
      for (int packet = 0; packet < 20; ++packet) {
        assembly.Add(more, false);
      }
      assembly.Add(more, true);
      if (i % 10 == 9) {
        assembly.Resynchronise();
      }
    }
    EXPECT_EQ(kolvex_test::Allocations(), allocations);
    EXPECT_GE(host.frames, 90U);
  }
}

}  // namespace
}  // namespace sarnevo
