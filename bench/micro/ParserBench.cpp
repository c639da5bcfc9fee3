// The pure steps on a frame's road: RTP header, JPEG header, MPEG-4 headers.
#include <benchmark/benchmark.h>

#include <array>

#include "TestFrame.h"
#include "protocols/CRTPPacket.h"
#include "video/JpegHeader.h"
#include "video/Mpeg4Header.h"

namespace {

using namespace sarnevo;
using kolvex_bench::FrameKind;

void ParseRtp(benchmark::State& state) {
  std::array<u8, 1412> datagram{0x80, 0x9A, 0x12, 0x34};
  for (auto _ : state) {
    benchmark::DoNotOptimize(datagram.data());
    benchmark::DoNotOptimize(ParseRtpHeader(datagram));
  }
}
BENCHMARK(ParseRtp);

void WriteJpeg(benchmark::State& state) {
  const auto frame = kolvex_bench::MakeFrame(FrameKind::Jpeg, 1400).front();
  std::array<u8, 1024> header;
  for (auto _ : state) {
    const auto parsed = ParseJpegFrame(frame, JpegLayout::Group1);
    WriteJpegHeader(header, *parsed, JpegLayout::Group1);
    benchmark::DoNotOptimize(header.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(WriteJpeg);

void ParseMpeg4(benchmark::State& state) {
  const auto frame = kolvex_bench::MakeFrame(FrameKind::Mpeg4Key, 1400).front();
  for (auto _ : state) {
    const auto size = ParseMpeg4Header(frame);
    if (!size) {
      state.SkipWithError("the header isn't one");
      break;
    }
    benchmark::DoNotOptimize(size);
  }
}
BENCHMARK(ParseMpeg4);

}  // namespace
