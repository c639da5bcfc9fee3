#include "PictureReader.h"

#include <cstdio>
// jpeglib.h needs FILE in front of it.
#include <jpeglib.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace simcam_test {

namespace {

constexpr std::size_t kRtpHeader = 12;

// From the zigzag order of the wire to the natural order that libjpeg wants (ITU-T T.81, figure A.6).
constexpr int kNatural[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                              12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                              35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                              58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

/// All that stands in front of the scan: a picture of the same shape and tables is encoded, and its own scan
/// cut off.
std::vector<std::uint8_t> HeaderFor(const std::vector<std::uint8_t>& payload, int group) {
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &out, &size);
  jpeg.image_width = payload[6] * 8U;
  jpeg.image_height = payload[7] * 8U;
  jpeg.input_components = 3;
  jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&jpeg);
  for (int table = 0; table < 2; ++table) {
    unsigned values[64];
    for (std::size_t i = 0; i < 64; ++i) {
      values[kNatural[i]] = payload[12 + 64 * static_cast<std::size_t>(table) + i];
    }
    jpeg_add_quant_table(&jpeg, table, values, 100, TRUE);
  }
  jpeg.comp_info[0].h_samp_factor = 2;
  jpeg.comp_info[0].v_samp_factor = payload[4] == 0 ? 1 : 2;
  jpeg.restart_interval = group == 2 ? 10 : 0;
  jpeg_start_compress(&jpeg, TRUE);
  std::vector<std::uint8_t> row(jpeg.image_width * 3);
  while (jpeg.next_scanline < jpeg.image_height) {
    JSAMPROW rows[] = {row.data()};
    jpeg_write_scanlines(&jpeg, rows, 1);
  }
  jpeg_finish_compress(&jpeg);
  std::vector<std::uint8_t> file(out, out + size);
  jpeg_destroy_compress(&jpeg);
  std::free(out);
  const std::uint8_t sos[] = {0xFF, 0xDA, 0x00, 0x0C};
  const auto at = std::search(file.begin(), file.end(), std::begin(sos), std::end(sos));
  file.erase(at + 14, file.end());
  return file;
}

struct Complaints {
  jpeg_error_mgr manager;
  std::string text;
};

void Complain(j_common_ptr info, int level) {
  if (level >= 0) return;  // traces, no warnings
  char message[JMSG_LENGTH_MAX];
  info->err->format_message(info, message);
  reinterpret_cast<Complaints*>(info->err)->text += std::string(message) + "; ";
}

}  // namespace

std::vector<std::uint8_t> Joined(const std::vector<Datagram>& frame) {
  std::vector<std::uint8_t> bytes;
  for (const Datagram& datagram : frame) {
    bytes.insert(bytes.end(), datagram.bytes.begin() + kRtpHeader, datagram.bytes.end());
  }
  return bytes;
}

std::vector<std::uint8_t> JpegOf(const std::vector<Datagram>& frame, int group) {
  const std::size_t beforeScan = group == 2 ? 245 : 140;
  const std::vector<std::uint8_t> first = Joined({frame.front()});
  if (first.size() <= beforeScan) {
    throw std::runtime_error("the first packet has no scan");
  }
  std::vector<std::uint8_t> file = HeaderFor(first, group);
  file.insert(file.end(), first.begin() + static_cast<std::ptrdiff_t>(beforeScan), first.end());
  for (std::size_t i = 1; i < frame.size(); ++i) {
    file.insert(file.end(), frame[i].bytes.begin() + kRtpHeader + 8, frame[i].bytes.end());
  }
  return file;
}

Luma DecodeJpeg(const std::vector<std::uint8_t>& file) {
  Luma luma;
  jpeg_decompress_struct jpeg{};
  Complaints complaints{};
  jpeg.err = jpeg_std_error(&complaints.manager);
  complaints.manager.emit_message = Complain;
  complaints.manager.error_exit = [](j_common_ptr info) {
    char message[JMSG_LENGTH_MAX];
    info->err->format_message(info, message);
    std::fprintf(stderr, "libjpeg gives up: %s\n", message);
    std::abort();
  };
  jpeg_create_decompress(&jpeg);
  jpeg_mem_src(&jpeg, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&jpeg, TRUE);
  jpeg.out_color_space = JCS_GRAYSCALE;
  jpeg_start_decompress(&jpeg);
  luma.width = jpeg.output_width;
  luma.height = jpeg.output_height;
  luma.pixels.resize(std::size_t{luma.width} * luma.height);
  while (jpeg.output_scanline < jpeg.output_height) {
    JSAMPROW rows[] = {luma.pixels.data() + std::size_t{jpeg.output_scanline} * luma.width};
    jpeg_read_scanlines(&jpeg, rows, 1);
  }
  jpeg_finish_decompress(&jpeg);
  jpeg_destroy_decompress(&jpeg);
  luma.complaint = complaints.text;
  return luma;
}

void Mpeg4Reader::Free::operator()(AVCodecContext* context) const { avcodec_free_context(&context); }

Mpeg4Reader::Mpeg4Reader() : context_(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_MPEG4))) {
  context_->thread_count = 1;
  context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
  context_->err_recognition = AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
  avcodec_open2(context_.get(), nullptr, nullptr);
}

Luma Mpeg4Reader::Decode(const std::vector<std::uint8_t>& frame) {
  Luma luma;
  const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                              [](AVPacket* p) { av_packet_free(&p); });
  const std::unique_ptr<AVFrame, void (*)(AVFrame*)> picture(av_frame_alloc(),
                                                             [](AVFrame* f) { av_frame_free(&f); });
  av_new_packet(packet.get(), static_cast<int>(frame.size()));
  std::copy(frame.begin(), frame.end(), packet->data);
  if (avcodec_send_packet(context_.get(), packet.get()) < 0 ||
      avcodec_receive_frame(context_.get(), picture.get()) < 0) {
    luma.complaint = "the decoder refuses the frame";
    return luma;
  }
  luma.width = static_cast<unsigned>(picture->width);
  luma.height = static_cast<unsigned>(picture->height);
  for (int y = 0; y < picture->height; ++y) {
    const std::uint8_t* const line = picture->data[0] + y * picture->linesize[0];
    luma.pixels.insert(luma.pixels.end(), line, line + picture->width);
  }
  if (picture->decode_error_flags != 0) {
    luma.complaint = "decoded with errors";
  }
  return luma;
}

}  // namespace simcam_test
