#include "PictureDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

#include <cstring>
#include <mutex>
#include <new>

namespace kolvex_host {

namespace {

// Complaints of the decoder on this thread. The decoder hands out many a damaged picture as a good one and
// says so in its log only.
thread_local int complaints = 0;

void CountComplaint(void*, int level, const char*, va_list) {
  if (level <= AV_LOG_WARNING) {
    ++complaints;
  }
}

/// Planar colour formats come in a "J" form that stands for full range; the scaler wants the plain format
/// and the range apart.
AVPixelFormat WithoutRange(AVPixelFormat format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    default:
      return format;
  }
}

}  // namespace

void PictureDecoder::Free::operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
void PictureDecoder::Free::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void PictureDecoder::Free::operator()(AVPacket* packet) const { av_packet_free(&packet); }

PictureDecoder::PictureDecoder(sarnevo::Codec codec) {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(CountComplaint); });

  const AVCodec* const decoder =
      avcodec_find_decoder(codec == sarnevo::CodecMJPEG ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_MPEG4);
  context_.reset(avcodec_alloc_context3(decoder));
  frame_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  if (!decoder || !context_ || !frame_ || !packet_) {
    throw std::bad_alloc();
  }
  context_->thread_count = 1;  // a picture comes out with the frame that went in
  context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
  context_->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER;
  if (avcodec_open2(context_.get(), decoder, nullptr) != 0) {
    throw std::bad_alloc();
  }
}

PictureDecoder::~PictureDecoder() = default;

bool PictureDecoder::Decode(std::span<const sarnevo::u8> bytes) {
  complaints = 0;
  // The decoder reads beyond the end of its input; a packet of its own has the room for that.
  av_packet_unref(packet_.get());
  if (av_new_packet(packet_.get(), static_cast<int>(bytes.size())) != 0) {
    return false;
  }
  std::memcpy(packet_->data, bytes.data(), bytes.size());
  if (avcodec_send_packet(context_.get(), packet_.get()) != 0 ||
      avcodec_receive_frame(context_.get(), frame_.get()) != 0) {
    return false;
  }
  return complaints == 0 && frame_->decode_error_flags == 0 && (frame_->flags & AV_FRAME_FLAG_CORRUPT) == 0;
}

Luma PictureDecoder::GetLuma() const {
  return {frame_->data[0], static_cast<unsigned>(frame_->width), static_cast<unsigned>(frame_->height),
          static_cast<std::size_t>(frame_->linesize[0])};
}

Picture PictureDecoder::GetPicture() const {
  Picture picture{frame_->width, frame_->height, {}};
  if (!frame_->data[0]) {
    return {};
  }
  const auto format = static_cast<AVPixelFormat>(frame_->format);
  const std::unique_ptr<SwsContext, decltype(&sws_freeContext)> scaler(
      sws_getContext(picture.width, picture.height, WithoutRange(format), picture.width, picture.height,
                     AV_PIX_FMT_BGR0, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr),
      &sws_freeContext);
  if (!scaler) {
    return {};
  }
  const bool fullRange = format != WithoutRange(format) || frame_->color_range == AVCOL_RANGE_JPEG;
  const int* const coefficients = sws_getCoefficients(SWS_CS_ITU601);
  sws_setColorspaceDetails(scaler.get(), coefficients, fullRange ? 1 : 0, coefficients, 1, 0, 1 << 16, 1 << 16);

  const int stride = picture.width * 4;
  picture.pixels.resize(static_cast<std::size_t>(stride) * static_cast<std::size_t>(picture.height));
  sarnevo::u8* const rows[] = {picture.pixels.data()};
  const int strides[] = {stride};
  sws_scale(scaler.get(), frame_->data, frame_->linesize, 0, picture.height, rows, strides);
  return picture;
}

}  // namespace kolvex_host
