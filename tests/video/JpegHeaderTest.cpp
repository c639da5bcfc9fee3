#include "video/JpegHeader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace sarnevo {
namespace {

// What the camera has a say in is looked at byte by byte in the corpora (fuzz/JpegCheck.h).
TEST(JpegHeader, IsReadByADecoderWithTheStandardsHuffmanTables) {
  jpeg_error_mgr errors{};
  jpeg_compress_struct encoder{};  // has the tables of ITU-T T.81, K.3
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  encoder.in_color_space = JCS_RGB;
  encoder.input_components = 3;
  jpeg_set_defaults(&encoder);
  for (const JpegLayout layout : {JpegLayout::Group1, JpegLayout::Group2}) {
    for (const u8 type : {u8{0}, u8{1}}) {
      const bool isGroup1 = layout == JpegLayout::Group1;
      SCOPED_TRACE((isGroup1 ? "group 1, type " : "group 2, type ") + std::to_string(type));
      std::vector<u8> frame{0, 0, 0, 0, type, 99, 328 / 8, 248 / 8, 0, 0, 0, 128};
      frame.resize(isGroup1 ? 140 : 245, 1);
      frame.push_back(0x77);
      const auto parsed = ParseJpegFrame(frame, layout);
      ASSERT_TRUE(parsed);
      std::vector<u8> file(JpegHeaderSize(layout));
      WriteJpegHeader(file, *parsed, layout);
      file.push_back(0x77);

      jpeg_decompress_struct decoder{};
      decoder.err = &errors;
      jpeg_create_decompress(&decoder);
      jpeg_mem_src(&decoder, file.data(), file.size());
      ASSERT_EQ(jpeg_read_header(&decoder, TRUE), JPEG_HEADER_OK);
      EXPECT_EQ(errors.num_warnings, 0);
      EXPECT_EQ(decoder.image_width, 328U);
      EXPECT_EQ(decoder.image_height, 248U);
      EXPECT_EQ(decoder.restart_interval, isGroup1 ? 0U : 10U);
      ASSERT_EQ(decoder.num_components, 3);
      for (int i = 0; i < 3; ++i) {
        const jpeg_component_info& component = decoder.comp_info[i];
        EXPECT_EQ(component.component_id, i);  // of no matter to decoders, but to some hosts
        EXPECT_EQ(component.h_samp_factor, i == 0 ? 2 : 1);
        EXPECT_EQ(component.v_samp_factor, i == 0 && type != 0 ? 2 : 1);
      }
      for (int i = 0; i < 4; ++i) {
        const JHUFF_TBL& table = *(i < 2 ? decoder.dc_huff_tbl_ptrs : decoder.ac_huff_tbl_ptrs)[i % 2];
        const JHUFF_TBL& standard = *(i < 2 ? encoder.dc_huff_tbl_ptrs : encoder.ac_huff_tbl_ptrs)[i % 2];
        EXPECT_TRUE(std::ranges::equal(table.bits, standard.bits)) << i;
        EXPECT_TRUE(std::ranges::equal(table.huffval, standard.huffval)) << i;
      }
      jpeg_destroy_decompress(&decoder);
    }
  }
  jpeg_destroy_compress(&encoder);
}

}  // namespace
}  // namespace sarnevo
