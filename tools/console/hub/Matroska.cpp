#include "hub/Matroska.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <array>
#include <cstring>

namespace kolvex_console {

namespace {

constexpr int kBuffer = 32 * 1024;
constexpr std::array<std::uint8_t, 4> kPictureStart = {0x00, 0x00, 0x01, 0xb6};

struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

bool IsJpeg(const Picture& frame) {
  return frame.bytes.size() > 2 && frame.bytes[0] == 0xff && frame.bytes[1] == 0xd8;
}

/// The headers that an MPEG-4 key frame begins with (ISO/IEC 14496-2, 6.2), all before its first picture.
std::span<const std::uint8_t> HeadersOf(const Picture& frame) {
  const auto picture =
      std::search(frame.bytes.begin(), frame.bytes.end(), kPictureStart.begin(), kPictureStart.end());
  return frame.bytes.first(static_cast<std::size_t>(picture - frame.bytes.begin()));
}

}  // namespace

/// libavformat with its output in a text of ours. One thread at a time.
class MatroskaOutlet::Muxer {
 public:
  explicit Muxer(const Picture& first);
  ~Muxer();
  Muxer(const Muxer&) = delete;
  Muxer& operator=(const Muxer&) = delete;

  bool IsReady() const { return ready_; }
  bool Fits(const Picture& frame) const { return frame.width == width_ && frame.height == height_; }
  bool Write(const Picture& frame);
  std::string TakeOutput() { return std::exchange(output_, {}); }

 private:
  static int Collect(void* self, std::uint8_t* bytes, int size) {
    static_cast<Muxer*>(self)->output_.append(reinterpret_cast<const char*>(bytes),
                                              static_cast<std::size_t>(size));
    return size;
  }
  bool Prepare(const Picture& first);

  AVFormatContext* context_ = nullptr;
  const std::unique_ptr<AVPacket, FreePacket> packet_{av_packet_alloc()};
  std::string output_;
  const std::uint32_t width_;
  const std::uint32_t height_;
  const std::chrono::system_clock::time_point start_;
  std::int64_t last_ = -1;  // milliseconds since the start, of the frame before
  bool ready_ = false;
};

MatroskaOutlet::Muxer::Muxer(const Picture& first)
    : width_(first.width), height_(first.height), start_(first.time) {
  ready_ = packet_ && Prepare(first);
}

bool MatroskaOutlet::Muxer::Prepare(const Picture& first) {
  if (avformat_alloc_output_context2(&context_, nullptr, "matroska", nullptr) < 0) {
    return false;
  }
  auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBuffer));
  context_->pb = buffer ? avio_alloc_context(buffer, kBuffer, 1, this, nullptr, &Collect, nullptr) : nullptr;
  AVStream* const stream = avformat_new_stream(context_, nullptr);
  if (!context_->pb || !stream) {
    return false;
  }
  context_->flags |= AVFMT_FLAG_FLUSH_PACKETS | AVFMT_FLAG_BITEXACT;
  AVCodecParameters& codec = *stream->codecpar;
  codec.codec_type = AVMEDIA_TYPE_VIDEO;
  codec.codec_id = IsJpeg(first) ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_MPEG4;
  codec.width = static_cast<int>(width_);
  codec.height = static_cast<int>(height_);
  stream->time_base = {1, 1000};
  if (!IsJpeg(first)) {
    const auto headers = HeadersOf(first);
    codec.extradata = static_cast<std::uint8_t*>(av_mallocz(headers.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!codec.extradata) {
      return false;
    }
    std::memcpy(codec.extradata, headers.data(), headers.size());
    codec.extradata_size = static_cast<int>(headers.size());
  }
  // Live: sizes are unknown and nothing is gone back to.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "live", "1", 0);
  av_dict_set(&options, "cluster_time_limit", "1000", 0);
  const int result = avformat_write_header(context_, &options);
  av_dict_free(&options);
  return result >= 0;
}

MatroskaOutlet::Muxer::~Muxer() {
  if (context_) {
    if (context_->pb) {
      av_freep(&context_->pb->buffer);
      avio_context_free(&context_->pb);
    }
    avformat_free_context(context_);
  }
}

bool MatroskaOutlet::Muxer::Write(const Picture& frame) {
  const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(frame.time - start_);
  // The clock may be set back, and times must grow.
  last_ = std::max<std::int64_t>(since.count(), last_ + 1);
  AVPacket& packet = *packet_;
  packet.data = const_cast<std::uint8_t*>(frame.bytes.data());  // the muxer only reads
  packet.size = static_cast<int>(frame.bytes.size());
  packet.pts = packet.dts = last_;
  packet.flags = frame.isKey ? AV_PKT_FLAG_KEY : 0;
  const bool written = av_write_frame(context_, &packet) >= 0;
  avio_flush(context_->pb);
  packet.data = nullptr;
  packet.size = 0;
  return written;
}

MatroskaOutlet::MatroskaOutlet(std::shared_ptr<Feed> feed)
    : feed_(std::move(feed)), queue_(feed_->OpenQueue()) {}
MatroskaOutlet::~MatroskaOutlet() = default;

bool MatroskaOutlet::Next(Unit& into) {
  const PicturePtr frame = failed_ ? nullptr : queue_->Take();
  if (!frame) {
    return false;
  }
  if (!muxer_) {
    muxer_ = std::make_unique<Muxer>(*frame);
  }
  // A stream has one size. A camera that changes it ends the stream, and the viewer comes again.
  if (!muxer_->IsReady() || !muxer_->Fits(*frame) || !muxer_->Write(*frame)) {
    failed_ = true;
    return false;
  }
  into.head = muxer_->TakeOutput();
  return true;
}

}  // namespace kolvex_console
