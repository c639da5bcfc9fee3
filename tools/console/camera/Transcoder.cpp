#include "camera/Transcoder.h"

#include <chrono>
#include <optional>
#include <utility>

#include "PictureCodec.h"

namespace kolvex_console {

namespace {

/// Between pictures for viewers when the machine can't make one of each frame.
constexpr std::chrono::milliseconds kRest{200};

}  // namespace

Transcoder::Transcoder(std::function<void(Picture)> show)
    : show_(std::move(show)), thread_([this] { Work(); }) {}

Transcoder::~Transcoder() {
  {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void Transcoder::Put(const PicturePtr& frame) {
  {
    const std::lock_guard guard(lock_);
    if (paused_) {
      if (!frame->isKey) {
        return;
      }
      paused_ = false;
      fresh_ = true;
    }
    frames_.Put(frame);
    ++waiting_;
  }
  wake_.notify_all();
}

void Transcoder::Pause() {
  const std::lock_guard guard(lock_);
  if (!paused_) {
    paused_ = true;
    while (frames_.Take()) {
    }
  }
}

void Transcoder::Work() {
  std::optional<kolvex_host::PictureDecoder> decoder;
  kolvex_host::PictureEncoder encoder;
  std::chrono::steady_clock::time_point shown;
  for (;;) {
    PicturePtr frame;
    {
      std::unique_lock guard(lock_);
      wake_.wait(guard, [this] { return ended_ || waiting_ != 0; });
      if (ended_) {
        return;
      }
      frame = frames_.Take();
      if (!frame) {
        waiting_ = 0;  // the queue was emptied meanwhile
        continue;
      }
      if (std::exchange(fresh_, false)) {
        decoder.reset();
      }
    }
    if (!decoder) {
      decoder.emplace(sarnevo::CodecMPEG4);
    }
    if (!decoder->Decode(frame->bytes)) {
      continue;
    }
    // Where frames wait this one is old. The next ones are decoded sooner when it isn't encoded; some are, since on a
    // slow machine frames may always wait.
    const auto now = std::chrono::steady_clock::now();
    if (!frames_.IsEmpty() && now - shown < kRest) {
      continue;
    }
    shown = now;
    const kolvex_host::Picture decoded = decoder->GetPicture();
    const auto file = std::make_shared<const std::vector<std::uint8_t>>(encoder.Encode(decoded));
    if (!file->empty()) {
      show_({.number = 0,
             .time = frame->time,
             .width = static_cast<std::uint32_t>(decoded.width),
             .height = static_cast<std::uint32_t>(decoded.height),
             .isKey = true,
             .bytes = *file,
             .memory = file});
    }
  }
}

}  // namespace kolvex_console
