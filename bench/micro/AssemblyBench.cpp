// What a packet costs between the RTP parser and the host, with the frame's share in it.
#include <benchmark/benchmark.h>

#include "TestFrame.h"
#include "kolvex/IFrameAllocator.h"
#include "kolvex/IFrameSink.h"
#include "video/Activity.h"
#include "video/FrameAssembly.h"

namespace {

using namespace sarnevo;
using kolvex_bench::FrameKind;

// A host that has one frame and does nothing with it.
class Host : public ipcapture::IFrameAllocator, public ipcapture::IFrameSink, public ipcapture::IFrame {
 public:
  ipcapture::IFrame* AllocateFrame(u32 /*fourCC*/, u32 size, const char* /*owner*/) override {
    return size <= data_.size() ? this : nullptr;
  }
  void ReleaseFrame(ipcapture::IFrame* /*frame*/) override {}
  bool OnFrame(ipcapture::IFrame* /*frame*/) override {
    ++frames;
    return true;
  }
  void OnNoData() override {}
  u8* GetData() override { return data_.data(); }
  void SetDataSize(u32 /*size*/) override {}
  void Finish() override {}
  void SetFourCC(u32 /*fourCC*/) override {}
  void SetHeight(u32 /*height*/) override {}
  void SetWidth(u32 /*width*/) override {}
  void SetSizeClass(u32 /*sizeClass*/) override {}
  void Slot1() override {}
  void Slot3() override {}

  std::int64_t frames = 0;

 private:
  std::vector<u8> data_ = std::vector<u8>(300'000);
};

void Assemble(benchmark::State& state, FrameKind kind) {
  const auto payloads = kolvex_bench::MakeFrame(kind, static_cast<std::size_t>(state.range(0)));
  const bool jpeg = kind == FrameKind::Jpeg;
  Host host;
  Activity activity;
  FrameAssembly assembly({.allocator = &host, .sink = &host, .returns = std::make_shared<FrameReturns>()},
                         jpeg ? CodecMJPEG : CodecMPEG4, JpegLayout::Group1, activity);
  if (jpeg) {
    assembly.Add(payloads.front(), true);  // the end of a frame, behind which the first whole one begins
  }
  for (auto _ : state) {
    for (const auto& payload : payloads) {
      assembly.Add(payload, &payload == &payloads.back());
    }
  }
  if (host.frames != static_cast<std::int64_t>(state.iterations())) {
    state.SkipWithError("frames were lost");
  }
  // An item is a packet.
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * payloads.size()));
}

BENCHMARK_CAPTURE(Assemble, JpegFrame, FrameKind::Jpeg)->Arg(40'000);
BENCHMARK_CAPTURE(Assemble, Mpeg4KeyFrame, FrameKind::Mpeg4Key)->Arg(40'000);

}  // namespace
