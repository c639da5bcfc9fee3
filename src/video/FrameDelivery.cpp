#include "video/FrameDelivery.h"

#include <cstring>
#include <type_traits>
#include <utility>

#include "threads/HostCall.h"
#include "video/FrameLease.h"

namespace sarnevo {

namespace {

using ipcapture::IFrame;

constexpr std::size_t kJpegHeadroom = 512;  // bytes beyond the payloads; the header takes at most 471 of them
static_assert(JpegHeaderSize(JpegLayout::Group1) - 140 <= kJpegHeadroom);
static_assert(JpegHeaderSize(JpegLayout::Group2) - 245 <= kJpegHeadroom);

// What the host takes for a large picture differs between the two codecs.
constexpr u32 kLargeJpegFrom = 400;  // pixels of width
constexpr u32 kLargeMpeg4From = 381;
constexpr u32 kSizeClassLarge = 4;
constexpr u32 kSizeClassSmall = 2;

constexpr const char* kJpegOwner = "";
constexpr const char* kMpeg4Owner = "CKolvexIPCapture";

// Calls the host. When the host has ended the channel meanwhile, the frame goes back and the thread ends.
template <typename Call>
bool CallWith(FrameLease& lease, Call&& call) noexcept {
  static_assert(std::is_trivially_destructible_v<FrameLease>);
  return CallHost(std::forward<Call>(call), [&lease] { lease.EndGivenUp(); });
}

// One frame on its way: from the allocator, filled step by step, to the sink.
class Delivery {
 public:
  Delivery(FrameLease& lease, ipcapture::IFrameSink* sink) noexcept : lease_(lease), sink_(sink) {}

  bool Take(u32 fourCC, std::size_t size, const char* owner) noexcept {
    CallWith(lease_, [&] { lease_.Take(fourCC, static_cast<u32>(size), owner); });
    return lease_.Frame() != nullptr;
  }

  u8* Data() noexcept {
    u8* data = nullptr;
    CallWith(lease_, [&] { data = lease_.Frame()->GetData(); });
    return data;
  }

  void Set(void (IFrame::*setter)(u32), std::size_t value) noexcept {
    CallWith(lease_, [&] { (lease_.Frame()->*setter)(static_cast<u32>(value)); });
  }

  bool Finish() noexcept {
    CallWith(lease_, [&] { lease_.Frame()->Finish(); });
    bool taken = false;
    if (sink_ != nullptr) {
      CallWith(lease_, [&] { taken = sink_->OnFrame(lease_.Frame()); });
    }
    return taken;
  }

 private:
  FrameLease& lease_;
  ipcapture::IFrameSink* const sink_;
};

void FillJpeg(Delivery& delivery, const JpegFrame& frame, std::size_t capacity, JpegLayout layout) noexcept {
  if (!delivery.Take(FrameFourCCJPEG, capacity, kJpegOwner)) {
    return;
  }
  u8* const data = delivery.Data();
  if (data == nullptr) {
    return;
  }
  const std::size_t header = JpegHeaderSize(layout);
  WriteJpegHeader({data, header}, frame, layout);
  std::memcpy(data + header, frame.scan.data(), frame.scan.size());
  delivery.Set(&IFrame::SetDataSize, header + frame.scan.size());
  delivery.Set(&IFrame::SetFourCC, FrameFourCCJPEG);
  delivery.Set(&IFrame::SetWidth, frame.width);
  delivery.Set(&IFrame::SetHeight, frame.height);
  delivery.Set(&IFrame::SetSizeClass, frame.width >= kLargeJpegFrom ? kSizeClassLarge : kSizeClassSmall);
  delivery.Finish();
}

bool FillMpeg4(Delivery& delivery, const Mpeg4Frame& frame) noexcept {
  const u32 fourCC = frame.isKey ? FrameFourCCMPEG4Key : FrameFourCCMPEG4Inter;
  const std::size_t size = frame.data.size();
  if (!delivery.Take(fourCC, Mpeg4Capacity(size), kMpeg4Owner)) {
    return false;
  }
  delivery.Set(&IFrame::SetWidth, frame.width);
  delivery.Set(&IFrame::SetHeight, frame.height);
  delivery.Set(&IFrame::SetSizeClass, frame.width >= kLargeMpeg4From ? kSizeClassLarge : kSizeClassSmall);
  delivery.Set(&IFrame::SetDataSize, size);
  u8* const data = delivery.Data();
  if (data == nullptr) {
    return false;
  }
  std::memcpy(data, frame.data.data(), size);
  delivery.Set(&IFrame::SetFourCC, fourCC);
  return delivery.Finish();
}

}  // namespace

void DeliverJpeg(const FrameRoute& route, std::span<const u8> frame, JpegLayout layout) noexcept {
  const auto jpeg = ParseJpegFrame(frame, layout);
  if (!jpeg || route.allocator == nullptr) {
    return;
  }
  FrameLease lease(route.allocator, route.driver);
  Delivery delivery(lease, route.sink);
  lease.Begin();
  FillJpeg(delivery, *jpeg, frame.size() + kJpegHeadroom, layout);
  lease.End();
}

bool DeliverMpeg4(const FrameRoute& route, const Mpeg4Frame& frame) noexcept {
  FrameLease lease(route.allocator, route.driver);
  Delivery delivery(lease, route.sink);
  lease.Begin();
  const bool taken = FillMpeg4(delivery, frame);
  lease.End();
  return taken;
}

}  // namespace sarnevo
