#include "simcam/codec/JpegEncoder.h"

#include <cstdio>
// jpeglib.h needs size_t and FILE in front of it.
#include <jpeglib.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>

namespace simcam {

namespace {

struct ErrorExit {
  jpeg_error_mgr manager;
  std::jmp_buf leave;
};

/// Only plain records live in here, so that leaving by longjmp is sound. The buffer is malloc's; null on
/// failure.
bool Compress(const Pixels& pixels, unsigned quality, Sampling sampling, unsigned restartInterval,
              unsigned char** buffer, unsigned long* size) {
  jpeg_compress_struct jpeg{};
  ErrorExit error{};
  jpeg.err = jpeg_std_error(&error.manager);
  // libjpeg is C: an exception can't pass through it.
  error.manager.error_exit = [](j_common_ptr info) {
    std::longjmp(reinterpret_cast<ErrorExit*>(info->err)->leave, 1);  // NOLINT(cert-err52-cpp)
  };
  if (setjmp(error.leave) != 0) {  // NOLINT(cert-err52-cpp)
    jpeg_destroy_compress(&jpeg);
    return false;
  }
  jpeg_create_compress(&jpeg);
  jpeg_mem_dest(&jpeg, buffer, size);
  jpeg.image_width = pixels.width;
  jpeg.image_height = pixels.height;
  jpeg.input_components = 4;
  jpeg.in_color_space = JCS_EXT_BGRX;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, static_cast<int>(quality), TRUE);
  jpeg.optimize_coding = FALSE;
  jpeg.restart_interval = restartInterval;
  jpeg.comp_info[0].h_samp_factor = 2;
  jpeg.comp_info[0].v_samp_factor = sampling == Sampling::Yuv420 ? 2 : 1;
  jpeg_start_compress(&jpeg, TRUE);
  while (jpeg.next_scanline < jpeg.image_height) {
    auto* row = const_cast<JSAMPROW>(pixels.data + jpeg.next_scanline * pixels.stride);
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  return true;
}

/// Walks the marker segments (ITU-T T.81, B.1.1.4) up to the scan.
bool FindParts(EncodedJpeg& jpeg) {
  constexpr std::uint8_t kDqt = 0xDB;
  constexpr std::uint8_t kSos = 0xDA;
  const std::vector<std::uint8_t>& file = jpeg.file;
  std::size_t at = 2;  // after SOI
  while (file.size() - at >= 4 && file[at] == 0xFF) {
    const std::uint8_t marker = file[at + 1];
    const std::size_t length = static_cast<std::size_t>(file[at + 2]) << 8U | file[at + 3];
    if (length > file.size() - at - 2) {
      return false;
    }
    const std::size_t end = at + 2 + length;
    if (marker == kSos) {
      jpeg.scanOffset = end;
      return true;
    }
    for (std::size_t table = at + 4; marker == kDqt && end - table >= 65; table += 65) {
      auto& into = file[table] == 0 ? jpeg.luma : jpeg.chroma;
      std::copy_n(file.begin() + static_cast<std::ptrdiff_t>(table) + 1, 64, into.begin());
    }
    at = end;
  }
  return false;
}

}  // namespace

std::optional<EncodedJpeg> EncodeJpeg(const Pixels& pixels, unsigned quality, Sampling sampling,
                                      unsigned restartInterval) {
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  const bool compressed = Compress(pixels, quality, sampling, restartInterval, &buffer, &size);
  EncodedJpeg jpeg;
  if (compressed) {
    jpeg.file.assign(buffer, buffer + size);
  }
  std::free(buffer);
  if (!compressed || !FindParts(jpeg)) {
    return std::nullopt;
  }
  return jpeg;
}

}  // namespace simcam
