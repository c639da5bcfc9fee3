// Once its buffers have grown, the road of a packet takes nothing from the heap; and what happens when the heap
// has nothing left.
#include <gtest/gtest.h>

#include <vector>

#include "platform/Clock.h"
#include "support/CountAllocations.h"
#include "support/ScriptedCamera.h"
#include "video/FrameAssembly.h"
#include "video/InterruptGate.h"

namespace sarnevo {
namespace {

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
    const kolvex_test::Payload first =
        codec == CodecMJPEG ? kolvex_test::JpegFramePacket(1) : kolvex_test::Mpeg4KeyFramePacket();
    const kolvex_test::Payload more(1400, 0x55);
    const auto play = [&] {
      assembly.Add(first, false);
      for (int i = 0; i < 20; ++i) {
        assembly.Add(more, false);
      }
      assembly.Add(more, true);
    };
    play();
    play();
    const std::size_t before = kolvex_test::Allocations();
    const u32 framesBefore = host.frames;
    for (int i = 0; i < 100; ++i) {
      play();
      if (i % 10 == 0) {
        assembly.Resynchronise();
      }
    }
    EXPECT_EQ(kolvex_test::Allocations(), before);
    EXPECT_GE(host.frames - framesBefore, 90U);
  }
}

TEST(InterruptGate, PausesWithoutMemoryForItsEventToo) {
  kolvex_test::FailAllocationBehind(0);
  InterruptGate gate;
  ASSERT_FALSE(kolvex_test::CancelFailure());
  const u64 began = platform::MonotonicMilliseconds();
  gate.Pause(platform::Milliseconds{30});
  EXPECT_GE(platform::MonotonicMilliseconds() - began, 30U);
}

}  // namespace
}  // namespace sarnevo
