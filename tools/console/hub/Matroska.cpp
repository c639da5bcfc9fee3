#include "hub/Matroska.h"

#include <chrono>
#include <exception>
#include <utility>

namespace kolvex_console {

void MatroskaOutlet::Begin(const Picture& first) {
  width_ = first.width;
  height_ = first.height;
  start_ = first.time;
  const bool isJpeg = first.bytes.size() > 2 && first.bytes[0] == 0xff && first.bytes[1] == 0xd8;
  const auto collect = [this](std::span<const sarnevo::u8> bytes) {
    output_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  muxer_.emplace(kolvex_host::MatroskaMuxer::Target{collect, {}},
                 isJpeg ? sarnevo::CodecMJPEG : sarnevo::CodecMPEG4, width_, height_, first.bytes);
}

bool MatroskaOutlet::Next(Unit& into) {
  const PicturePtr frame = failed_ ? nullptr : queue_->Take();
  if (!frame) {
    return false;
  }
  try {
    if (!muxer_) {
      Begin(*frame);
    }
    // A stream has one size. A camera that changes it ends the stream, and the viewer comes again.
    failed_ = frame->width != width_ || frame->height != height_;
    if (!failed_) {
      muxer_->Write(frame->bytes, std::chrono::duration_cast<std::chrono::milliseconds>(frame->time - start_),
                    frame->isKey);
    }
  } catch (const std::exception&) {
    failed_ = true;  // memory has run out, or the container refuses the stream
  }
  into.head = failed_ ? std::string() : std::exchange(output_, {});
  return !failed_;
}

}  // namespace kolvex_console
