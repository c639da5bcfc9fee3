#include "video/JpegHeader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

constexpr u32 kWidth = 328;
constexpr u32 kHeight = 248;

// A JPEG file made by an encoder that isn't ours, with the standard's Huffman tables.
Bytes Encode(bool is422, unsigned restartInterval) {
  jpeg_compress_struct encoder{};
  jpeg_error_mgr errors{};
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* memory = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&encoder, &memory, &size);
  encoder.image_width = kWidth;
  encoder.image_height = kHeight;
  encoder.input_components = 3;
  encoder.in_color_space = JCS_RGB;
  jpeg_set_defaults(&encoder);
  jpeg_set_quality(&encoder, 80, TRUE);
  encoder.comp_info[0].h_samp_factor = 2;
  encoder.comp_info[0].v_samp_factor = is422 ? 1 : 2;
  encoder.restart_interval = restartInterval;
  jpeg_start_compress(&encoder, TRUE);
  Bytes line(kWidth * 3);
  for (unsigned char* row = line.data(); encoder.next_scanline < kHeight;) {
    jpeg_write_scanlines(&encoder, &row, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  const std::unique_ptr<unsigned char, void (*)(void*)> owner(memory, &std::free);
  return {memory, memory + size};
}

// The segments of a JPEG file (ITU-T T.81, B.1.1.4), those of one kind joined, and the scan with its end.
std::map<u8, Bytes> Segments(const Bytes& file) {
  std::map<u8, Bytes> segments;
  for (std::size_t at = 2; at + 4 <= file.size();) {
    const u8 marker = file[at + 1];
    const std::size_t length = static_cast<std::size_t>(file[at + 2] << 8 | file[at + 3]);
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at + 4);
    const auto end = begin + static_cast<std::ptrdiff_t>(length - 2);
    segments[marker].insert(segments[marker].end(), begin, end);
    if (marker == 0xDA) {
      segments[0] = Bytes(end, file.end());
      break;
    }
    at += 2 + length;
  }
  return segments;
}

TEST(JpegHeader, MakesTheEncodersFileAgainFromWhatACameraSends) {
  for (const JpegLayout layout : {JpegLayout::Group1, JpegLayout::Group2}) {
    for (const bool is422 : {true, false}) {
      const bool isGroup1 = layout == JpegLayout::Group1;
      SCOPED_TRACE(std::string(isGroup1 ? "group 1" : "group 2") + (is422 ? " 4:2:2" : " 4:2:0"));
      const Bytes original = Encode(is422, isGroup1 ? 0 : 10);
      std::map<u8, Bytes> parts = Segments(original);
      ASSERT_EQ(parts[0xDB].size(), 130U);
      Bytes frame{0, 0, 0, 0, static_cast<u8>(is422 ? 0 : 1), 99, kWidth / 8, kHeight / 8, 0, 0, 0, 128};
      frame.insert(frame.end(), parts[0xDB].begin() + 1, parts[0xDB].begin() + 65);
      frame.insert(frame.end(), parts[0xDB].begin() + 66, parts[0xDB].end());
      frame.resize(isGroup1 ? 140 : 245);
      frame.insert(frame.end(), parts[0].begin(), parts[0].end());

      const auto parsed = ParseJpegFrame(frame, layout);
      ASSERT_TRUE(parsed);
      Bytes file(JpegHeaderSize(layout));
      WriteJpegHeader(file, *parsed, layout);
      file.insert(file.end(), parts[0].begin(), parts[0].end());
      // Decoders don't care how the components are numbered; some hosts do.
      parts[0xC0] = {8, 0,    kHeight, 1, kWidth & 0xFF, 3, 0, static_cast<u8>(is422 ? 0x21 : 0x22), 0,
                     1, 0x11, 1,       2, 0x11,          1};
      parts[0xDA] = {3, 0, 0, 1, 0x11, 2, 0x11, 0, 63, 0};
      parts.erase(0xE0);  // the encoder's own
      EXPECT_EQ(Segments(file), parts);
      EXPECT_EQ(Bytes(file.begin(), file.begin() + 2), (Bytes{0xFF, 0xD8}));
    }
  }
}

TEST(JpegHeader, IsMadeOnlyForAFrameWithAScan) {
  for (const auto& [layout, first] : {std::pair{JpegLayout::Group1, 141U}, {JpegLayout::Group2, 246U}}) {
    for (std::size_t size = 0; size < first; ++size) {
      EXPECT_FALSE(ParseJpegFrame(Bytes(size, 0xFF), layout)) << size;
    }
    const auto parsed = ParseJpegFrame(Bytes(first, 0xFF), layout);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->width, 2040U);
    EXPECT_EQ(parsed->height, 2040U);
  }
}

}  // namespace
}  // namespace sarnevo
