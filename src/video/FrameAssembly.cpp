#include "video/FrameAssembly.h"

#include <algorithm>
#include <new>

namespace sarnevo {

namespace {

// The main JPEG header that each packet begins with (RFC 2435, 3.1).
constexpr std::size_t kMainJpegHeader = 8;

}  // namespace

FrameAssembly::FrameAssembly(const FrameRoute& route, u32 codec, JpegLayout layout, Activity& activity) noexcept
    : route_(route), codec_(codec), layout_(layout), activity_(activity) {}

void FrameAssembly::Add(std::span<const u8> payload, bool marker) noexcept {
  if (codec_ == CodecMJPEG) {
    AddMjpeg(payload, marker);
  } else {
    AddMpeg4(payload, marker);
  }
}

// The kind goes with the frame: the torn tail of a key frame would otherwise pass for a whole one, and be a sign of
// life while the host's picture is frozen.
void FrameAssembly::Resynchronise() noexcept {
  frameBuffer_.clear();
  needSync_ = true;
  keyFrame_ = false;
  interFrame_ = false;
}

void FrameAssembly::AddMjpeg(std::span<const u8> payload, bool marker) noexcept {
  if (needSync_) {
    // Only the end of a frame shows where the next one starts.
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
    keyFrame_ = true;
    interFrame_ = false;
  } else if (BeginsWith(payload, Mpeg4StartCode::VideoObjectPlane)) {
    keyFrame_ = false;
    interFrame_ = true;
  }
  if (needSync_ && !keyFrame_) {
    return;
  }
  needSync_ = false;
  if (!Append(payload) || !marker) {
    return;
  }
  activity_.TouchActivity();
  if (DeliverMpeg4Frame()) {
    frameBuffer_.clear();
  } else {
    Resynchronise();
  }
}

// False when the frame was dropped: it is too large, or there is no memory for it.
bool FrameAssembly::Append(std::span<const u8> payload) noexcept {
  try {
    frameBuffer_.insert(frameBuffer_.end(), payload.begin(), payload.end());
    if (frameBuffer_.size() <= kMaxFrameBytes) {
      return true;
    }
  } catch (const std::bad_alloc&) {
    // The host's memory has run out; the stream goes on with the next frame.
  }
  Resynchronise();
  return false;
}

// False when what follows can't be understood without it.
bool FrameAssembly::DeliverMpeg4Frame() noexcept {
  if (frameBuffer_.empty() || route_.allocator == nullptr) {
    return true;
  }
  if (keyFrame_) {
    const auto size = ParseMpeg4Header(frameBuffer_);
    if (!size) {
      return false;
    }
    size_ = *size;
  }
  return DeliverMPEG4(route_, frameBuffer_, size_, keyFrame_);
}

}  // namespace sarnevo
