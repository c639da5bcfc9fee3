#include "video/JpegHeader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <numeric>
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
  for (u32 y = 0; y < kHeight; ++y) {
    for (u32 x = 0; x < kWidth * 3; ++x) {
      line[x] = static_cast<u8>(x * 7 + y * (x % 5) + (x * y >> 4));
    }
    unsigned char* row = line.data();
    jpeg_write_scanlines(&encoder, &row, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  const std::unique_ptr<unsigned char, void (*)(void*)> owner(memory, &std::free);
  return {memory, memory + size};
}

struct Picture {
  u32 width = 0;
  u32 height = 0;
  long warnings = 0;
  Bytes pixels;
};

// An independent decoder. A malformed file ends the test program, as libjpeg does by itself.
Picture Decode(const Bytes& file) {
  jpeg_decompress_struct decoder{};
  jpeg_error_mgr errors{};
  decoder.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decoder);
  jpeg_mem_src(&decoder, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&decoder, TRUE);
  jpeg_start_decompress(&decoder);
  Picture picture{decoder.output_width, decoder.output_height, 0, {}};
  picture.pixels.resize(std::size_t{picture.width} * picture.height * 3);
  while (decoder.output_scanline < decoder.output_height) {
    unsigned char* row = &picture.pixels[std::size_t{decoder.output_scanline} * picture.width * 3];
    jpeg_read_scanlines(&decoder, &row, 1);
  }
  jpeg_finish_decompress(&decoder);
  picture.warnings = errors.num_warnings;
  jpeg_destroy_decompress(&decoder);
  return picture;
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

// The Huffman tables of a file by class and destination (ITU-T T.81, B.2.4.2).
std::map<u8, Bytes> HuffmanTables(const Bytes& segments) {
  std::map<u8, Bytes> tables;
  for (auto at = segments.begin(); segments.end() - at > 17;) {
    const auto end = at + 17 + std::accumulate(at + 1, at + 17, 0);
    tables[*at] = Bytes(at + 1, end);
    at = end;
  }
  return tables;
}

TEST(JpegHeader, MakesTheEncodersPictureAgainFromWhatACameraSends) {
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
      EXPECT_EQ(Segments(file)[0xC0], (Bytes{8, 0, kHeight, 1, kWidth & 0xFF, 3, 0,
                                             static_cast<u8>(is422 ? 0x21 : 0x22), 0, 1, 0x11, 1, 2, 0x11, 1}));
      // A picture seldom has each of the codes.
      EXPECT_EQ(HuffmanTables(Segments(file)[0xC4]), HuffmanTables(parts[0xC4]));
      const Picture expected = Decode(original);
      const Picture picture = Decode(file);
      EXPECT_EQ(picture.warnings, 0);
      EXPECT_EQ(picture.width, kWidth);
      EXPECT_EQ(picture.height, kHeight);
      EXPECT_TRUE(picture.pixels == expected.pixels);
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
