#include "PictureCodec.h"

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

void TakeLog() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(CountComplaint); });
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

void FreeCodec::operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
void FreeCodec::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void FreeCodec::operator()(AVPacket* packet) const { av_packet_free(&packet); }
void FreeCodec::operator()(SwsContext* scaler) const { sws_freeContext(scaler); }

PictureDecoder::PictureDecoder(sarnevo::Codec codec) {
  TakeLog();

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

PictureEncoder::PictureEncoder() : frame_(av_frame_alloc()), packet_(av_packet_alloc()) {
  TakeLog();
  if (!frame_ || !packet_) {
    throw std::bad_alloc();
  }
}

PictureEncoder::~PictureEncoder() = default;

bool PictureEncoder::FitTo(const Picture& picture) {
  if (context_ && context_->width == picture.width && context_->height == picture.height) {
    return av_frame_make_writable(frame_.get()) == 0;
  }
  const AVCodec* const encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  context_.reset(avcodec_alloc_context3(encoder));
  if (!encoder || !context_) {
    return false;
  }
  constexpr int kFine = 3;  // quantizer; 2 is the best, 31 the worst
  context_->width = picture.width;
  context_->height = picture.height;
  context_->pix_fmt = AV_PIX_FMT_YUVJ420P;
  context_->color_range = AVCOL_RANGE_JPEG;
  context_->time_base = {1, 25};
  context_->flags |= AV_CODEC_FLAG_QSCALE;
  context_->global_quality = kFine * FF_QP2LAMBDA;
  context_->thread_count = 1;
  av_frame_unref(frame_.get());
  frame_->format = AV_PIX_FMT_YUVJ420P;
  frame_->color_range = AVCOL_RANGE_JPEG;
  frame_->width = picture.width;
  frame_->height = picture.height;
  frame_->quality = context_->global_quality;
  scaler_.reset(sws_getContext(picture.width, picture.height, AV_PIX_FMT_BGR0, picture.width, picture.height,
                               AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
  if (!scaler_ || avcodec_open2(context_.get(), encoder, nullptr) != 0 ||
      av_frame_get_buffer(frame_.get(), 0) != 0) {
    context_.reset();
    return false;
  }
  const int* const coefficients = sws_getCoefficients(SWS_CS_ITU601);
  sws_setColorspaceDetails(scaler_.get(), coefficients, 1, coefficients, 1, 0, 1 << 16, 1 << 16);
  return true;
}

std::vector<sarnevo::u8> PictureEncoder::Encode(const Picture& picture) {
  if (picture.pixels.empty() || !FitTo(picture)) {
    return {};
  }
  const sarnevo::u8* const rows[] = {picture.pixels.data()};
  const int strides[] = {picture.width * 4};
  sws_scale(scaler_.get(), rows, strides, 0, picture.height, frame_->data, frame_->linesize);
  av_packet_unref(packet_.get());
  if (avcodec_send_frame(context_.get(), frame_.get()) != 0 ||
      avcodec_receive_packet(context_.get(), packet_.get()) != 0) {
    return {};
  }
  return {packet_->data, packet_->data + packet_->size};
}

}  // namespace kolvex_host
