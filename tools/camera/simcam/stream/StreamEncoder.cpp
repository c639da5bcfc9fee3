#include "simcam/stream/StreamEncoder.h"

#include <algorithm>
#include <utility>

namespace simcam {

namespace {

// What receivers of these cameras hold of one frame; a picture that would be larger is encoded coarser.
constexpr std::size_t kMaxFrameBytes = 250'000;

}  // namespace

StreamEncoder::StreamEncoder(const StreamFormat& format, std::string caption)
    : format_(format), caption_(std::move(caption)), picture_(format.width, format.height) {
  if (format.codec == Codec::Mpeg4) {
    mpeg4_ = std::make_unique<Mpeg4Encoder>(format);
  }
}

std::shared_ptr<PacketizedFrame> StreamEncoder::Next(const View& view, std::uint32_t counter, bool forceKey) {
  auto frame = std::make_shared<PacketizedFrame>();
  frame->counter = counter;
  frame->captured = std::chrono::steady_clock::now();
  frame->interval = std::chrono::microseconds(1'000'000 / std::max<unsigned>(format_.fps, 1));
  const Pixels pixels = picture_.Draw(view, {caption_, counter, std::chrono::system_clock::now()});
  if (mpeg4_ != nullptr) {
    const Mpeg4Encoder::Frame encoded = mpeg4_->Encode(pixels, forceKey);
    frame->key = encoded.key;
    frame->payloadType = 96;
    PacketizeMpeg4(encoded.bytes, *frame);
    return encoded.bytes.empty() ? nullptr : frame;
  }
  return AddJpeg(pixels, *frame) ? frame : nullptr;
}

bool StreamEncoder::AddJpeg(const Pixels& pixels, PacketizedFrame& frame) {
  const unsigned restart = format_.layout == JpegLayout::Commented ? kRestartInterval : 0;
  for (unsigned quality = format_.quality;; quality -= std::min(quality, 10U)) {
    const std::optional<EncodedJpeg> jpeg =
        EncodeJpeg(pixels, std::max(quality, 1U), format_.sampling, restart);
    if (!jpeg) {
      return false;
    }
    if (jpeg->file.size() <= kMaxFrameBytes || quality == 0) {
      PacketizeJpeg(*jpeg, format_, caption_, frame);
      return true;
    }
  }
}

}  // namespace simcam
