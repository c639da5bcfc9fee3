#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "FuzzTarget.h"

namespace kolvex_fuzz {

/// Walks through the segments in front of the scan of a JPEG file (ITU-T T.81, B.1.1) as a decoder would. Written
/// from the standard alone, so that it shares no table and no size with the writer. Stops the program unless the
/// file can be decoded up to its scan: SOI, two tables, for group 2 the restart interval, a frame header with the
/// size that the host got, the four Huffman tables, each whole in itself, a scan header that fits them.
class JpegCheck {
 public:
  /// What the camera has a say in. The scan holds the end of image only if the camera sent one.
  struct Parts {
    Bytes luminance;
    Bytes chrominance;
    unsigned sampling = 0;
    Bytes scan;
  };

  static Parts PartsOf(Bytes file, bool group1, unsigned width, unsigned height) {
    JpegCheck check(file);
    Check(check.Word() == 0xFFD8, "a JPEG begins with its start of image");
    Parts parts;
    parts.luminance = check.Quantization(0);
    parts.chrominance = check.Quantization(1);
    if (!group1) {
      const Bytes interval = check.Segment(0xDD);
      Check(interval.size() == 2 && interval[0] == 0 && interval[1] == 10, "a restart interval of 10");
    }
    parts.sampling = check.FrameHeader(width, height);
    for (const unsigned selector : {0x00U, 0x10U, 0x01U, 0x11U}) {
      check.Huffman(selector);
    }
    check.ScanHeader();
    parts.scan = check.left_;
    return parts;
  }

 private:
  explicit JpegCheck(Bytes file) : left_(file) {}

  unsigned Word() {
    Check(left_.size() >= 2, "a word in front of the scan");
    const unsigned word = left_[0] * 256U + left_[1];
    left_ = left_.subspan(2);
    return word;
  }

  Bytes Segment(unsigned marker) {
    Check(Word() == 0xFF00 + marker, "the segments come in order");
    const unsigned length = Word();
    Check(length >= 2 && length - 2 <= left_.size(), "a segment lies in the file");
    const Bytes body = left_.first(length - 2);
    left_ = left_.subspan(body.size());
    return body;
  }

  Bytes Quantization(unsigned number) {
    const Bytes table = Segment(0xDB);
    Check(table.size() == 65 && table[0] == number, "a quantization table of 8 bits");
    return table.subspan(1);
  }

  unsigned FrameHeader(unsigned width, unsigned height) {
    const Bytes frame = Segment(0xC0);
    Check(frame.size() == 15 && frame[0] == 8 && frame[5] == 3, "a baseline frame of three components");
    Check(frame[1] * 256U + frame[2] == height && frame[3] * 256U + frame[4] == width,
          "the file has the size that is reported");
    Check(frame[7] == 0x21 || frame[7] == 0x22, "sampling is 4:2:2 or 4:2:0");
    Check(frame[10] == 0x11 && frame[13] == 0x11, "chrominance isn't sampled finer");
    Check(frame[8] == 0 && frame[11] == 1 && frame[14] == 1, "each component names a table that is there");
    return frame[7];
  }

  // The codes of each length must fit the tree, and the values fill the segment.
  void Huffman(unsigned selector) {
    const Bytes table = Segment(0xC4);
    Check(table.size() > 17 && table[0] == selector, "the Huffman tables come in order");
    unsigned values = 0;
    unsigned free = 1;
    for (std::size_t length = 1; length <= 16; ++length) {
      free = free * 2;
      Check(table[length] < free, "a Huffman code never has ones only");
      free -= table[length];
      values += table[length];
    }
    Check(table.size() == 17 + values, "as many values as codes");
    Check((selector & 0x10) != 0 ? values == 162 : values == 12, "the tables of baseline 8-bit pictures");
  }

  void ScanHeader() {
    static constexpr std::array<std::uint8_t, 10> kWanted = {3, 0, 0x00, 1, 0x11, 2, 0x11, 0, 63, 0};
    Check(std::ranges::equal(Segment(0xDA), kWanted), "one interleaved scan of all components");
  }

  Bytes left_;
};

}  // namespace kolvex_fuzz
