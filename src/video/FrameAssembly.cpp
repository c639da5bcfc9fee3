#include "video/FrameAssembly.h"

#include <algorithm>
#include <new>

#include "video/Mpeg4Header.h"

namespace sarnevo {

namespace {

// The main JPEG header that each packet begins with (RFC 2435, 3.1).
constexpr std::size_t kMainJpegHeader = 8;

}  // namespace

FrameAssembly::FrameAssembly(const FrameRoute& route, u32 codec, JpegLayout layout, Activity& activity) noexcept
    : route_(route), codec_(codec), layout_(layout), activity_(activity) {}

void FrameAssembly::SetPictureSize(u32 width, u32 height) noexcept {
  width_ = width;
  height_ = height;
}

void FrameAssembly::Add(std::span<const u8> payload, bool marker) noexcept {
  if (codec_ == CodecMJPEG) {
    AddMjpeg(payload, marker);
  } else {
    AddMpeg4(payload, marker);
  }
}

void FrameAssembly::Resynchronise() noexcept {
  frameBuffer_.clear();
  needSync_ = true;
}

void FrameAssembly::AddMjpeg(std::span<const u8> payload, bool marker) noexcept {
  if (needSync_) {
    // Only the end of a frame tells where the next one starts.
    if (marker) {
      needSync_ = false;
      atFrameStart_ = true;
    }
    return;
  }
  if (atFrameStart_) {
    atFrameStart_ = false;
  } else {
    payload = payload.subspan(std::min(kMainJpegHeader, payload.size()));
  }
  if (!Append(payload) || !marker) {
    return;
  }
  activity_.TouchActivity();
  DeliverJPEG(route_, frameBuffer_, layout_);
  frameBuffer_.clear();
  atFrameStart_ = true;
}

void FrameAssembly::AddMpeg4(std::span<const u8> payload, bool marker) noexcept {
  // A packet that begins with neither start code continues the frame and leaves its kind as it is.
  if (BeginsWith(payload, Mpeg4StartCode::VisualObjectSequence)) {
    kind_ = FrameKind::Key;
  } else if (BeginsWith(payload, Mpeg4StartCode::VideoObjectPlane)) {
    kind_ = FrameKind::Inter;
  }
  if (needSync_ && kind_ != FrameKind::Key) {
    return;
  }
  needSync_ = false;
  if (!Append(payload) || !marker) {
    return;
  }
  activity_.TouchActivity();
  DeliverMpeg4Frame();
  frameBuffer_.clear();
}

// False when the frame was dropped as too large.
bool FrameAssembly::Append(std::span<const u8> payload) noexcept {
  try {
    frameBuffer_.insert(frameBuffer_.end(), payload.begin(), payload.end());
  } catch (const std::bad_alloc&) {
    Resynchronise();  // the host's memory has run out; the stream goes on with the next frame
    return false;
  }
  if (frameBuffer_.size() > kMaxFrameBytes) {
    Resynchronise();
    return false;
  }
  return true;
}

void FrameAssembly::DeliverMpeg4Frame() noexcept {
  if (frameBuffer_.empty() || route_.allocator == nullptr) {
    return;
  }
  const bool isKey = kind_ == FrameKind::Key;
  if (isKey) {
    const auto size = ParseMpeg4Header(frameBuffer_);
    if (!size) {
      needSync_ = true;
      return;
    }
    SetPictureSize(size->width, size->height);
  }
  if (!DeliverMPEG4(route_, {.data = frameBuffer_, .width = width_, .height = height_, .isKey = isKey})) {
    needSync_ = true;
  }
}

}  // namespace sarnevo
