#include "MatroskaMuxer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>
#include <utility>

#include "Failure.h"

namespace kolvex_host {

namespace {

constexpr int kBuffer = 65'536;
constexpr AVRational kMilliseconds{1, 1000};  // also what the container counts in

/// The headers in front of the first picture of an MPEG-4 key frame (ISO/IEC 14496-2, 6.2.1).
std::span<const sarnevo::u8> HeadersOf(std::span<const sarnevo::u8> key) {
  constexpr std::array<sarnevo::u8, 4> kPictureStart{0, 0, 1, 0xB6};
  return key.first(static_cast<std::size_t>(
      std::search(key.begin(), key.end(), kPictureStart.begin(), kPictureStart.end()) - key.begin()));
}

}  // namespace

MatroskaMuxer::MatroskaMuxer(Target target, sarnevo::Codec codec, sarnevo::u32 width, sarnevo::u32 height,
                             std::span<const sarnevo::u8> firstKey)
    : target_(std::move(target)), packet_(av_packet_alloc()) {
  av_log_set_level(AV_LOG_QUIET);  // what matters comes as a Failure
  AVFormatContext* context = nullptr;
  if (!packet_ || avformat_alloc_output_context2(&context, nullptr, "matroska", nullptr) < 0) {
    throw std::bad_alloc();
  }
  muxer_.reset(context);
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
  muxer_->pb = buffer ? avio_alloc_context(buffer, kBuffer, 1, this, nullptr, &MatroskaMuxer::TakeBytes,
                                           target_.seek ? &MatroskaMuxer::TakeSeek : nullptr)
                      : nullptr;
  if (!muxer_->pb) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  AVStream* const stream = avformat_new_stream(context, nullptr);
  if (!stream) {
    throw std::bad_alloc();
  }
  stream->time_base = kMilliseconds;
  AVCodecParameters& facts = *stream->codecpar;
  facts.codec_type = AVMEDIA_TYPE_VIDEO;
  facts.codec_id = codec == sarnevo::CodecMJPEG ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_MPEG4;
  facts.width = static_cast<int>(width);
  facts.height = static_cast<int>(height);
  if (codec == sarnevo::CodecMPEG4) {
    const auto headers = HeadersOf(firstKey);
    facts.extradata = static_cast<sarnevo::u8*>(av_mallocz(headers.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!facts.extradata) {
      throw std::bad_alloc();
    }
    std::copy(headers.begin(), headers.end(), facts.extradata);
    facts.extradata_size = static_cast<int>(headers.size());
  }
  AVDictionary* options = nullptr;
  av_dict_set(&options, "cluster_time_limit", "1000", 0);  // milliseconds
  av_dict_set(&options, "live", target_.seek ? "0" : "1", 0);
  const int result = avformat_write_header(context, &options);
  av_dict_free(&options);
  Check(result);
}

MatroskaMuxer::~MatroskaMuxer() = default;

void MatroskaMuxer::FreeContext::operator()(AVFormatContext* context) const {
  if (context->pb) {
    av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
  }
  avformat_free_context(context);
}

void MatroskaMuxer::FreePacket::operator()(AVPacket* packet) const { av_packet_free(&packet); }

void MatroskaMuxer::Write(std::span<const sarnevo::u8> frame, std::chrono::milliseconds time, bool isKey) {
  // A reference to the caller's bytes, which the muxer copies.
  packet_->data = const_cast<sarnevo::u8*>(frame.data());
  packet_->size = static_cast<int>(frame.size());
  last_ = std::max<long>(last_ + 1, time.count());
  packet_->pts = packet_->dts = last_;
  packet_->flags = isKey ? AV_PKT_FLAG_KEY : 0;
  Check(av_write_frame(muxer_.get(), packet_.get()));
  avio_flush(muxer_->pb);
  Check(0);
}

void MatroskaMuxer::Finish() {
  Check(av_write_trailer(muxer_.get()));
  avio_flush(muxer_->pb);
  Check(0);
}

// No exception may pass through the muxer, which is in C.
int MatroskaMuxer::TakeBytes(void* self, unsigned char* bytes, int size) {
  auto& file = *static_cast<MatroskaMuxer*>(self);
  try {
    file.target_.write({bytes, static_cast<std::size_t>(size)});
    file.at_ += static_cast<sarnevo::u64>(size);
    file.end_ = std::max(file.end_, file.at_);
    return size;
  } catch (...) {
    file.failure_ = std::current_exception();
    return AVERROR(EIO);
  }
}

long MatroskaMuxer::TakeSeek(void* self, long offset, int whence) {
  auto& file = *static_cast<MatroskaMuxer*>(self);
  if (whence == AVSEEK_SIZE) {
    return static_cast<long>(file.end_);
  }
  if (whence != SEEK_SET) {
    return AVERROR(EINVAL);
  }
  try {
    file.at_ = static_cast<sarnevo::u64>(offset);
    file.target_.seek(file.at_);
    return offset;
  } catch (...) {
    file.failure_ = std::current_exception();
    return AVERROR(EIO);
  }
}

void MatroskaMuxer::Check(int result) {
  if (failure_) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
  if (result < 0) {
    throw Failure(ExitCode::Output, "The video file can't be written: the container refuses this stream.");
  }
}

}  // namespace kolvex_host
