#include "MediaFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>

namespace kolvex_host {

namespace {

constexpr int kBuffer = 65'536;
constexpr AVRational kMilliseconds{1, 1000};

/// The headers that stand in front of the first picture of an MPEG-4 key frame (ISO/IEC 14496-2, 6.2.1).
std::span<const sarnevo::u8> HeadersOf(std::span<const sarnevo::u8> key) {
  constexpr std::array<sarnevo::u8, 4> kPictureStart{0, 0, 1, 0xB6};
  return key.first(static_cast<std::size_t>(
      std::search(key.begin(), key.end(), kPictureStart.begin(), kPictureStart.end()) - key.begin()));
}

}  // namespace

MediaFile::MediaFile(const std::filesystem::path& path, sarnevo::Codec codec, sarnevo::u32 width,
                     sarnevo::u32 height, std::span<const sarnevo::u8> firstKey)
    : file_(path), seekable_(path != "-"), packet_(av_packet_alloc()) {
  av_log_set_level(AV_LOG_QUIET);  // what matters comes as a Failure
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
  if (!packet_ || !buffer || avformat_alloc_output_context2(&muxer_, nullptr, "matroska", nullptr) < 0) {
    throw std::bad_alloc();
  }
  muxer_->pb = avio_alloc_context(buffer, kBuffer, 1, this, nullptr, &MediaFile::TakeBytes,
                                  seekable_ ? &MediaFile::TakeSeek : nullptr);
  AVStream* const stream = avformat_new_stream(muxer_, nullptr);
  if (!muxer_->pb || !stream) {
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
    facts.extradata = static_cast<std::uint8_t*>(av_mallocz(headers.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!facts.extradata) {
      throw std::bad_alloc();
    }
    std::copy(headers.begin(), headers.end(), facts.extradata);
    facts.extradata_size = static_cast<int>(headers.size());
  }
  AVDictionary* options = nullptr;
  av_dict_set(&options, "cluster_time_limit", "1000", 0);  // milliseconds
  av_dict_set(&options, "live", seekable_ ? "0" : "1", 0);
  const int result = avformat_write_header(muxer_, &options);
  av_dict_free(&options);
  Check(result);
}

MediaFile::~MediaFile() {
  if (muxer_) {
    if (muxer_->pb) {
      av_freep(&muxer_->pb->buffer);
      avio_context_free(&muxer_->pb);
    }
    avformat_free_context(muxer_);
  }
  av_packet_free(&packet_);
}

void MediaFile::Write(std::span<const sarnevo::u8> frame, std::chrono::milliseconds time, bool isKey) {
  // A reference to the caller's bytes, which the muxer copies.
  packet_->data = const_cast<sarnevo::u8*>(frame.data());
  packet_->size = static_cast<int>(frame.size());
  last_ = std::max<long>(last_ + 1, time.count());  // times must grow
  packet_->pts = packet_->dts = av_rescale_q(last_, kMilliseconds, muxer_->streams[0]->time_base);
  packet_->flags = isKey ? AV_PKT_FLAG_KEY : 0;
  Check(av_write_frame(muxer_, packet_));
  avio_flush(muxer_->pb);
  Check(0);
}

void MediaFile::Close() {
  Check(av_write_trailer(muxer_));
  avio_flush(muxer_->pb);
  Check(0);
  file_.Close();
}

int MediaFile::TakeBytes(void* self, unsigned char* bytes, int size) {
  auto& file = *static_cast<MediaFile*>(self);
  try {
    file.file_.Write({bytes, static_cast<std::size_t>(size)});
    file.at_ += static_cast<sarnevo::u64>(size);
    file.end_ = std::max(file.end_, file.at_);
    return size;
  } catch (const Failure& failure) {
    file.failure_ = failure;
    return AVERROR(EIO);
  }
}

long MediaFile::TakeSeek(void* self, long offset, int whence) {
  auto& file = *static_cast<MediaFile*>(self);
  if (whence == AVSEEK_SIZE) {
    return static_cast<long>(file.end_);
  }
  try {
    file.at_ = static_cast<sarnevo::u64>(offset);
    file.file_.Seek(file.at_);
    return whence == SEEK_SET ? offset : AVERROR(EINVAL);
  } catch (const Failure& failure) {
    file.failure_ = failure;
    return AVERROR(EIO);
  }
}

void MediaFile::Check(int result) {
  if (failure_) {
    const Failure failure = *failure_;
    failure_.reset();
    throw Failure(failure);
  }
  if (result < 0) {
    throw Failure(ExitCode::Output, "The video file can't be written: the container refuses this stream.");
  }
}

}  // namespace kolvex_host
