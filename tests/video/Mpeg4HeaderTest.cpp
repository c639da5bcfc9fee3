#include "video/Mpeg4Header.h"

#include <gtest/gtest.h>

#include <bitset>
#include <string>
#include <vector>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

// The last bits of a number, as text.
std::string Bits(u32 value, std::size_t count) { return std::bitset<32>(value).to_string().substr(32 - count); }

// Zero bits fill the last byte up. Everything but a 0 is a 1.
Bytes Pack(const std::string& bits) {
  Bytes bytes((bits.size() + 7) / 8);
  for (std::size_t i = 0; i < bits.size(); ++i) {
    bytes[i / 8] = static_cast<u8>(bytes[i / 8] | (bits[i] != '0' ? 0x80 >> i % 8 : 0));
  }
  return bytes;
}

// The headers of a stream (ISO/IEC 14496-2, 6.2.2 and 6.2.3), each field to be changed. In bits, an m is a marker.
struct Headers {
  Bytes betweenSequenceAndObject = {};
  std::string objectIdentifier = "0";
  std::string objectType = "0001";
  std::string signalType = "0";
  Bytes betweenObjectAndLayer = {0x00, 0x00, 0x01, 0x00};  // the video object's own start code
  u8 layerCode = 0x20;
  u32 layerType = 1;
  std::string layerIdentifier = "0";
  std::string aspect = "0001";
  std::string control = "0";
  std::string shape = "00";
  u32 resolution = 25;
  std::string fixedRate = "0";
  u32 width = 352;
  u32 height = 288;

  std::string Layer() const {
    return "0" + Bits(layerType, 8) + layerIdentifier + aspect + control + shape + "m" + Bits(resolution, 16) +
           "m" + fixedRate + "m" + Bits(width, 13) + "m" + Bits(height, 13) + "m";
  }
  Bytes Build(const std::string& layer) const {
    Bytes stream;
    for (const Bytes& part :
         {Bytes{0x00, 0x00, 0x01, 0xB0, 0x01}, betweenSequenceAndObject, Bytes{0x00, 0x00, 0x01, 0xB5},
          Pack(objectIdentifier + objectType + signalType + "1"), betweenObjectAndLayer,
          Bytes{0x00, 0x00, 0x01, layerCode}, Pack(layer)}) {
      stream.insert(stream.end(), part.begin(), part.end());
    }
    return stream;
  }
};

const std::string kBuffer = "10111" + Bits(0x1234, 15) + "m" + Bits(0x1234, 15) + "m" + Bits(0x1234, 15) + "m" +
                            Bits(0x1234, 14) + "m" + Bits(0x1234, 15) + "m";

std::string Result(const Bytes& stream) {
  const auto size = ParseMpeg4Header(stream);
  return size ? std::to_string(size->width) + "x" + std::to_string(size->height) : "none";
}

TEST(Mpeg4Header, FindsTheSizeAfterWhateverMayComeBeforeIt) {
  const struct {
    const char* name;
    Headers headers;
    const char* result = "352x288";
  } rows[] = {
      {"plain", {}},
      {"largest", {.width = 8191, .height = 8191}, "8191x8191"},
      {"width 0", {.width = 0}, "none"},
      {"height 0", {.height = 0}, "none"},
      {"identified object", {.objectIdentifier = "10010001"}},
      {"signal type", {.signalType = "110100"}},
      {"signal type with colours", {.signalType = "110101" + Bits(0x010101, 24)}},
      {"still texture", {.objectType = "0010"}, "none"},
      {"identified layer", {.layerIdentifier = "10010001"}},
      {"last layer number", {.layerCode = 0x2F}},
      {"no layer", {.layerCode = 0x30}, "none"},
      {"fine granularity layer", {.layerType = 18}, "none"},
      {"extended aspect ratio", {.aspect = "1111" + Bits(0x0C0B, 16)}},
      {"control without vbv", {.control = "10110"}},
      {"control with vbv", {.control = kBuffer}},
      {"binary shape", {.shape = "01"}, "none"},
      {"resolution 0", {.resolution = 0}, "none"},
      {"fixed rate at resolution 1", {.resolution = 1, .fixedRate = "11"}},
      {"fixed rate at resolution 2", {.resolution = 2, .fixedRate = "11"}},
      {"fixed rate at resolution 32", {.resolution = 32, .fixedRate = "100001"}},
      {"fixed rate at resolution 33", {.resolution = 33, .fixedRate = "1000001"}},
      {"fixed rate at resolution 65535", {.resolution = 65535, .fixedRate = "1" + Bits(1, 16)}},
      {"user data in front of the object", {.betweenSequenceAndObject = {0, 0, 1, 0xB2, 'a', 0, 0, 2}}},
      {"user data in front of the layer", {.betweenObjectAndLayer = {0, 0, 1, 0xB2, 'b', 0, 0, 1, 5}}},
      {"zero bytes in front of a start code", {.betweenObjectAndLayer = {0, 0, 0}}},
      {"a picture in front of the layer", {.betweenObjectAndLayer = {0, 0, 1, 0xB6, 0x10}}, "none"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string layer = row.headers.Layer();
    const Bytes stream = row.headers.Build(layer);
    EXPECT_EQ(Result(stream), row.result);
    for (std::size_t at = layer.find('m'); at != layer.npos; at = layer.find('m', at + 1)) {
      EXPECT_EQ(Result(row.headers.Build(std::string(layer).replace(at, 1, "0"))), "none") << "marker " << at;
    }
    Bytes afterAByte = stream;
    afterAByte.insert(afterAByte.begin(), 0);
    EXPECT_EQ(Result(afterAByte), "none");
    for (std::size_t size = 0; size < stream.size(); ++size) {
      // The copy has exactly this size, so that a look past its end is seen.
      EXPECT_EQ(Result({stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size)}), "none") << size;
    }
  }
}

}  // namespace
}  // namespace sarnevo
