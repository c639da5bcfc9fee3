#include "simcam/codec/Mpeg4Encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <algorithm>

namespace simcam {

void Mpeg4Encoder::Free::operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
void Mpeg4Encoder::Free::operator()(AVFrame* frame) const { av_frame_free(&frame); }
void Mpeg4Encoder::Free::operator()(AVPacket* packet) const { av_packet_free(&packet); }
void Mpeg4Encoder::Free::operator()(SwsContext* scaler) const { sws_freeContext(scaler); }

Mpeg4Encoder::Mpeg4Encoder(const StreamFormat& format) {
  const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
  context_.reset(avcodec_alloc_context3(codec));
  frame_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  const int width = format.width;
  const int height = format.height;
  scaler_.reset(sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, AV_PIX_FMT_YUV420P,
                               SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
  if (context_ == nullptr || frame_ == nullptr || packet_ == nullptr || scaler_ == nullptr) {
    context_.reset();
    return;
  }
  context_->width = width;
  context_->height = height;
  context_->pix_fmt = AV_PIX_FMT_YUV420P;
  context_->time_base = {1, std::max<int>(format.fps, 1)};
  context_->gop_size = static_cast<int>(std::max(format.keyInterval, 1U));
  context_->max_b_frames = 0;
  context_->bit_rate = static_cast<std::int64_t>(format.kilobits) * 1000;
  context_->thread_count = 1;
  // Without the global header flag each key frame carries its own headers.
  frame_->format = AV_PIX_FMT_YUV420P;
  frame_->width = width;
  frame_->height = height;
  if (av_frame_get_buffer(frame_.get(), 0) < 0 || avcodec_open2(context_.get(), codec, nullptr) < 0) {
    context_.reset();
  }
}

Mpeg4Encoder::~Mpeg4Encoder() = default;

Mpeg4Encoder::Frame Mpeg4Encoder::Encode(const Pixels& pixels, bool forceKey) {
  Frame result;
  if (context_ == nullptr || av_frame_make_writable(frame_.get()) < 0) {
    return result;
  }
  const std::uint8_t* const planes[] = {pixels.data};
  const int strides[] = {static_cast<int>(pixels.stride)};
  sws_scale(scaler_.get(), planes, strides, 0, static_cast<int>(pixels.height), frame_->data, frame_->linesize);
  frame_->pts = next_++;
  frame_->pict_type = forceKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  if (avcodec_send_frame(context_.get(), frame_.get()) < 0 ||
      avcodec_receive_packet(context_.get(), packet_.get()) < 0) {
    return result;
  }
  result.bytes.assign(packet_->data, packet_->data + packet_->size);
  result.key = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
  av_packet_unref(packet_.get());
  return result;
}

}  // namespace simcam
