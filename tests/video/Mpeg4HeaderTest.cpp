#include "video/Mpeg4Header.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

class BitWriter {
 public:
  BitWriter& Put(u32 value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      if (bits_++ % 8 == 0) {
        bytes_.push_back(0);
      }
      bytes_.back() = static_cast<u8>(bytes_.back() | ((value >> i & 1) << (7 - (bits_ - 1) % 8)));
    }
    return *this;
  }
  BitWriter& Marker(bool good = true) { return Put(good ? 1 : 0, 1); }
  Bytes Take() { return bytes_; }

 private:
  Bytes bytes_;
  std::size_t bits_ = 0;
};

// The headers of a stream, each field to be changed.
struct Headers {
  Bytes betweenSequenceAndObject;
  u32 objectType = 1;
  bool objectIdentified = false;
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
  bool fixedRate = false;
  int increments = 5;  // bits that hold values below the resolution
  u32 width = 352;
  u32 height = 288;
  int badMarker = 0;  // from 1, in the order of the stream

  Bytes Build() const {
    Bytes stream{0x00, 0x00, 0x01, 0xB0, 0x01};
    Append(stream, betweenSequenceAndObject);
    Append(stream, {0x00, 0x00, 0x01, 0xB5});
    BitWriter object;
    object.Put(objectIdentified, 1);
    if (objectIdentified) {
      object.Put(1, 4).Put(1, 3);
    }
    object.Put(objectType, 4).Put(signalType, 1);
    if (signalType) {
      object.Put(5, 3).Put(0, 1).Put(colours, 1);
      if (colours) {
        object.Put(1, 8).Put(1, 8).Put(1, 8);
      }
    }
    Append(stream, object.Put(1, 1).Take());
    Append(stream, betweenObjectAndLayer);
    Append(stream, {0x00, 0x00, 0x01, layerCode});
    Append(stream, Layer());
    return stream;
  }

 private:
  static void Append(Bytes& stream, const Bytes& more) {
    stream.insert(stream.end(), more.begin(), more.end());
  }

  Bytes Layer() const {
    int markers = 0;
    BitWriter bits;
    const auto marker = [&] { bits.Marker(++markers != badMarker); };
    bits.Put(0, 1).Put(layerType, 8).Put(layerIdentified, 1);
    if (layerIdentified) {
      bits.Put(1, 4).Put(1, 3);
    }
    bits.Put(aspect, 4);
    if (aspect == 15) {
      bits.Put(12, 8).Put(11, 8);
    }
    bits.Put(control, 1);
    if (control) {
      bits.Put(1, 2).Put(1, 1).Put(vbv, 1);
      if (vbv) {
        bits.Put(0x1234, 15), marker();
        bits.Put(0x2345, 15), marker();
        bits.Put(0x3456, 15), marker();
        bits.Put(5, 3).Put(0x123, 11), marker();
        bits.Put(0x4567, 15), marker();
      }
    }
    bits.Put(shape, 2);
    marker();
    bits.Put(resolution, 16);
    marker();
    bits.Put(fixedRate, 1);
    if (fixedRate) {
      bits.Put(1, increments);
    }
    marker();
    bits.Put(width, 13);
    marker();
    bits.Put(height, 13);
    marker();
    return bits.Take();
  }
};

std::string Result(const Bytes& stream) {
  const auto size = ParseMpeg4Header(stream);
  return size ? std::to_string(size->width) + "x" + std::to_string(size->height) : "none";
}

TEST(Mpeg4Header, FindsTheSizeBehindWhateverMayStandBeforeIt) {
  const struct {
    const char* name;
    std::function<void(Headers&)> change;
    const char* result;
  } rows[] = {
      {"plain", [](Headers&) {}, "352x288"},
      {"largest", [](Headers& h) { h.width = h.height = 8191; }, "8191x8191"},
      {"width 0", [](Headers& h) { h.width = 0; }, "none"},
      {"height 0", [](Headers& h) { h.height = 0; }, "none"},
      {"identified object", [](Headers& h) { h.objectIdentified = true; }, "352x288"},
      {"signal type", [](Headers& h) { h.signalType = true; }, "352x288"},
      {"signal type with colours", [](Headers& h) { h.signalType = h.colours = h.objectIdentified = true; },
       "352x288"},
      {"still texture", [](Headers& h) { h.objectType = 2; }, "none"},
      {"mesh", [](Headers& h) { h.objectType = 3; }, "none"},
      {"identified layer", [](Headers& h) { h.layerIdentified = true; }, "352x288"},
      {"last layer number", [](Headers& h) { h.layerCode = 0x2F; }, "352x288"},
      {"no layer", [](Headers& h) { h.layerCode = 0x30; }, "none"},
      {"fine granularity layer", [](Headers& h) { h.layerType = 18; }, "none"},
      {"extended aspect ratio", [](Headers& h) { h.aspect = 15; }, "352x288"},
      {"control without vbv", [](Headers& h) { h.control = true; }, "352x288"},
      {"control with vbv", [](Headers& h) { h.control = h.vbv = true; }, "352x288"},
      {"binary shape", [](Headers& h) { h.shape = 1; }, "none"},
      {"grayscale shape", [](Headers& h) { h.shape = 3; }, "none"},
      {"resolution 0", [](Headers& h) { h.resolution = 0; }, "none"},
      {"fixed rate at resolution 1", [](Headers& h) { h.fixedRate = true, h.resolution = 1, h.increments = 1; },
       "352x288"},
      {"fixed rate at resolution 2", [](Headers& h) { h.fixedRate = true, h.resolution = 2, h.increments = 1; },
       "352x288"},
      {"fixed rate at resolution 32",
       [](Headers& h) { h.fixedRate = true, h.resolution = 32, h.increments = 5; }, "352x288"},
      {"fixed rate at resolution 33",
       [](Headers& h) { h.fixedRate = true, h.resolution = 33, h.increments = 6; }, "352x288"},
      {"fixed rate at resolution 65535",
       [](Headers& h) { h.fixedRate = true, h.resolution = 65535, h.increments = 16; }, "352x288"},
      {"everything at once",
       [](Headers& h) {
         h.objectIdentified = h.signalType = h.colours = h.layerIdentified = h.control = h.vbv = h.fixedRate =
             true;
         h.aspect = 15;
       },
       "352x288"},
      {"user data in both gaps",
       [](Headers& h) {
         h.betweenSequenceAndObject = {0x00, 0x00, 0x01, 0xB2, 'a', 0x00, 0x00, 0x02};
         h.betweenObjectAndLayer = {0x00, 0x00, 0x01, 0xB2, 'b', 0x00, 0x00, 0x01, 0x05};
       },
       "352x288"},
      {"zero bytes in front of a start code",
       [](Headers& h) {
         h.betweenObjectAndLayer = {0x00, 0x00, 0x00};
       },
       "352x288"},
      {"a picture in front of the layer",
       [](Headers& h) {
         h.betweenObjectAndLayer = {0x00, 0x00, 0x01, 0xB6, 0x10};
       },
       "none"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Headers headers;
    row.change(headers);
    const Bytes stream = headers.Build();
    EXPECT_EQ(Result(stream), row.result);
    for (std::size_t size = 0; size < stream.size(); ++size) {
      // The copy has exactly this size, so that a look behind its end is seen.
      EXPECT_EQ(Result(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size))), "none")
          << size;
    }
  }
}

TEST(Mpeg4Header, TestsEveryMarker) {
  Headers headers;
  headers.control = headers.vbv = headers.fixedRate = true;
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
