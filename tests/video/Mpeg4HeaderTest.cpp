#include "video/Mpeg4Header.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

class BitWriter {
 public:
  BitWriter& Put(u32 value, int count) {
    for (int i = count - 1; i >= 0; --i, ++bits_) {
      if (bits_ % 8 == 0) {
        bytes.push_back(0);
      }
      bytes.back() = static_cast<u8>(bytes.back() | (value >> i & 1) << (7 - bits_ % 8));
    }
    return *this;
  }
  Bytes bytes;

 private:
  std::size_t bits_ = 0;
};

// The headers of a stream (ISO/IEC 14496-2, 6.2.2 and 6.2.3), each field to be changed.
struct Headers {
  Bytes betweenSequenceAndObject = {};
  bool objectIdentified = false;
  u32 objectType = 1;
  bool signalType = false;
  bool colours = false;
  Bytes betweenObjectAndLayer = {0x00, 0x00, 0x01, 0x00};  // the video object's own start code
  u8 layerCode = 0x20;
  u32 layerType = 1;
  bool layerIdentified = false;
  u32 aspect = 1;
  bool control = false;
  bool vbv = false;
  u32 shape = 0;
  u32 resolution = 25;
  int increments = 0;  // bits of a fixed rate, which hold values below the resolution
  u32 width = 352;
  u32 height = 288;
  int badMarker = 0;  // from 1, in the order of the stream

  Bytes Build() const {
    BitWriter object;
    object.Put(objectIdentified, 1).Put(0x11, objectIdentified ? 7 : 0).Put(objectType, 4).Put(signalType, 1);
    if (signalType) {
      object.Put(5, 3).Put(0, 1).Put(colours, 1).Put(0x010101, colours ? 24 : 0);
    }
    object.Put(1, 1);
    Bytes stream;
    for (const Bytes& part :
         {Bytes{0x00, 0x00, 0x01, 0xB0, 0x01}, betweenSequenceAndObject, Bytes{0x00, 0x00, 0x01, 0xB5},
          object.bytes, betweenObjectAndLayer, Bytes{0x00, 0x00, 0x01, layerCode}, Layer()}) {
      stream.insert(stream.end(), part.begin(), part.end());
    }
    return stream;
  }

 private:
  Bytes Layer() const {
    BitWriter bits;
    int markers = 0;
    const auto putAndMark = [&](u32 value, int count) {
      bits.Put(value, count).Put(++markers != badMarker, 1);
    };
    bits.Put(0, 1).Put(layerType, 8).Put(layerIdentified, 1).Put(0x11, layerIdentified ? 7 : 0);
    bits.Put(aspect, 4).Put(0x0C0B, aspect == 15 ? 16 : 0).Put(control, 1);
    if (control) {
      bits.Put(1, 2).Put(1, 1).Put(vbv, 1);
      for (const int count : vbv ? std::vector{15, 15, 15, 14, 15} : std::vector<int>{}) {
        putAndMark(0x1234, count);
      }
    }
    putAndMark(shape, 2);
    putAndMark(resolution, 16);
    bits.Put(increments > 0, 1);
    putAndMark(1, increments);
    putAndMark(width, 13);
    putAndMark(height, 13);
    return bits.bytes;
  }
};

std::string Result(const Bytes& stream) {
  const auto size = ParseMpeg4Header(stream);
  return size ? std::to_string(size->width) + "x" + std::to_string(size->height) : "none";
}

TEST(Mpeg4Header, FindsTheSizeBehindWhateverMayStandBeforeIt) {
  const struct {
    const char* name;
    Headers headers;
    const char* result = "352x288";
  } rows[] = {
      {"plain", {}},
      {"largest", {.width = 8191, .height = 8191}, "8191x8191"},
      {"width 0", {.width = 0}, "none"},
      {"height 0", {.height = 0}, "none"},
      {"identified object", {.objectIdentified = true}},
      {"signal type", {.signalType = true}},
      {"signal type with colours", {.signalType = true, .colours = true}},
      {"still texture", {.objectType = 2}, "none"},
      {"identified layer", {.layerIdentified = true}},
      {"last layer number", {.layerCode = 0x2F}},
      {"no layer", {.layerCode = 0x30}, "none"},
      {"fine granularity layer", {.layerType = 18}, "none"},
      {"extended aspect ratio", {.aspect = 15}},
      {"control without vbv", {.control = true}},
      {"control with vbv", {.control = true, .vbv = true}},
      {"binary shape", {.shape = 1}, "none"},
      {"resolution 0", {.resolution = 0}, "none"},
      {"fixed rate at resolution 1", {.resolution = 1, .increments = 1}},
      {"fixed rate at resolution 2", {.resolution = 2, .increments = 1}},
      {"fixed rate at resolution 32", {.resolution = 32, .increments = 5}},
      {"fixed rate at resolution 33", {.resolution = 33, .increments = 6}},
      {"fixed rate at resolution 65535", {.resolution = 65535, .increments = 16}},
      {"user data in front of the object", {.betweenSequenceAndObject = {0, 0, 1, 0xB2, 'a', 0, 0, 2}}},
      {"user data in front of the layer", {.betweenObjectAndLayer = {0, 0, 1, 0xB2, 'b', 0, 0, 1, 5}}},
      {"zero bytes in front of a start code", {.betweenObjectAndLayer = {0, 0, 0}}},
      {"a picture in front of the layer", {.betweenObjectAndLayer = {0, 0, 1, 0xB6, 0x10}}, "none"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Bytes stream = row.headers.Build();
    EXPECT_EQ(Result(stream), row.result);
    for (std::size_t size = 0; size < stream.size(); ++size) {
      // The copy has exactly this size, so that a look behind its end is seen.
      EXPECT_EQ(Result({stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size)}), "none") << size;
    }
  }
}

TEST(Mpeg4Header, TestsEveryMarker) {
  Headers headers{.control = true, .vbv = true, .increments = 5};
  for (headers.badMarker = 1; headers.badMarker <= 10; ++headers.badMarker) {
    EXPECT_EQ(Result(headers.Build()), "none") << headers.badMarker;
  }
  EXPECT_EQ(Result(headers.Build()), "352x288");
}

TEST(Mpeg4Header, ReadsAnEncodersFrameAndOnlyFromItsVeryBeginning) {
  // Made by libavcodec's mpeg4 encoder.
  Bytes frame{0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB5, 0x89, 0x13, 0x00, 0x00, 0x01,
              0x00, 0x00, 0x00, 0x01, 0x20, 0x00, 0xC4, 0x8D, 0x88, 0x00, 0xCD, 0x16, 0x84, 0x48,
              0x14, 0x63, 0x00, 0x00, 0x01, 0xB2, 0x4C, 0x61, 0x76, 0x63, 0x00, 0x00, 0x01, 0xB3,
              0x00, 0x10, 0x07, 0x00, 0x00, 0x01, 0xB6, 0x10, 0x60, 0xF6, 0x0B, 0xAA, 0xF5};
  EXPECT_EQ(Result(frame), "720x576");
  EXPECT_TRUE(BeginsWith(frame, Mpeg4StartCode::VisualObjectSequence));
  frame.insert(frame.begin(), 0x00);
  EXPECT_EQ(Result(frame), "none");
  EXPECT_FALSE(BeginsWith(frame, Mpeg4StartCode::VisualObjectSequence));
}

}  // namespace
}  // namespace sarnevo
