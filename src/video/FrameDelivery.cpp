#include "video/FrameDelivery.h"

#include <cstring>

#include "threads/HostAsk.h"
#include "video/FrameLease.h"

namespace sarnevo {

namespace {

using ipcapture::IFrame;

// Bytes beyond the payloads. The header needs fewer, since the tables that it repeats are among the payloads.
constexpr std::size_t kJpegHeadroom = 512;
static_assert(JpegHeaderSize(JpegLayout::Group1) - JpegScanAt(JpegLayout::Group1) <= kJpegHeadroom);
static_assert(JpegHeaderSize(JpegLayout::Group2) - JpegScanAt(JpegLayout::Group2) <= kJpegHeadroom);

// What the host takes for a large picture differs between the two codecs.
constexpr u32 kLargeJpegFrom = 400;  // pixels of width
constexpr u32 kLargeMpeg4From = 381;
constexpr u32 kSizeClassLarge = 4;
constexpr u32 kSizeClassSmall = 2;

constexpr const char* kJpegOwner = "";
constexpr const char* kMpeg4Owner = "CKolvexIPCapture";

// Its data area; null when it has none, and when the host has ended the channel in the call: the frame may then be gone.
u8* DataOf(IFrame& frame) noexcept {
  u8* data = nullptr;
  return CallHost([&] { data = frame.GetData(); }) ? data : nullptr;
}

// Whether the sink took it.
bool Finish(IFrame& frame, ipcapture::IFrameSink* sink) noexcept {
  Tell(&frame, &IFrame::Finish);
  bool taken = false;
  if (sink != nullptr) {
    CallHost([&] { taken = sink->OnFrame(&frame); });
  }
  return taken;
}

}  // namespace

void DeliverJPEG(const FrameRoute& route, std::span<const u8> payloads, JpegLayout layout) noexcept {
  const auto jpeg = ParseJpegFrame(payloads, layout);
  if (!jpeg || route.allocator == nullptr) {
    return;
  }
  FrameLease lease(*route.allocator, *route.returns);
  if (!lease.Take(FrameFourCCJPEG, static_cast<u32>(payloads.size() + kJpegHeadroom), kJpegOwner)) {
    return;
  }
  IFrame& frame = lease.Frame();
  u8* const data = DataOf(frame);
  if (data == nullptr) {
    return;
  }
  const std::size_t header = JpegHeaderSize(layout);
  WriteJpegHeader({data, header}, *jpeg, layout);
  std::memcpy(data + header, jpeg->scan.data(), jpeg->scan.size());
  Tell(&frame, &IFrame::SetDataSize, static_cast<u32>(header + jpeg->scan.size()));
  Tell(&frame, &IFrame::SetFourCC, FrameFourCCJPEG);
  Tell(&frame, &IFrame::SetWidth, jpeg->width);
  Tell(&frame, &IFrame::SetHeight, jpeg->height);
  Tell(&frame, &IFrame::SetSizeClass, jpeg->width >= kLargeJpegFrom ? kSizeClassLarge : kSizeClassSmall);
  Finish(frame, route.sink);
}

bool DeliverMPEG4(const FrameRoute& route, std::span<const u8> data, PictureSize size, bool isKey) noexcept {
  const u32 fourCC = isKey ? FrameFourCCMPEG4Key : FrameFourCCMPEG4Inter;
  FrameLease lease(*route.allocator, *route.returns);
  if (!lease.Take(fourCC, static_cast<u32>(Mpeg4Capacity(data.size())), kMpeg4Owner)) {
    return false;
  }
  IFrame& frame = lease.Frame();
  Tell(&frame, &IFrame::SetWidth, size.width);
  Tell(&frame, &IFrame::SetHeight, size.height);
  Tell(&frame, &IFrame::SetSizeClass, size.width >= kLargeMpeg4From ? kSizeClassLarge : kSizeClassSmall);
  Tell(&frame, &IFrame::SetDataSize, static_cast<u32>(data.size()));
  u8* const into = DataOf(frame);
  if (into == nullptr) {
    return false;
  }
  std::memcpy(into, data.data(), data.size());
  Tell(&frame, &IFrame::SetFourCC, fourCC);
  return Finish(frame, route.sink);
}

}  // namespace sarnevo
