// Once its buffers have grown, the road of a packet takes nothing from the heap.
#include <gtest/gtest.h>

#include <vector>

#include "support/CountAllocations.h"
#include "support/ScriptedCamera.h"
#include "video/FrameAssembly.h"

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
