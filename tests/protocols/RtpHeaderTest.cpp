#include "protocols/RtpHeader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

// Of exactly the given size on the heap, so that a read past its end is seen by the sanitizer.
Bytes Datagram(std::size_t size, u8 first, u16 extensionWords) {
  Bytes bytes(size, 0xEE);
  const std::size_t extension = 12 + std::size_t{first & 0x0FU} * 4;
  const auto put = [&](std::size_t at, u8 value) {
    if (at < size) {
      bytes[at] = value;
    }
  };
  put(0, first);
  if ((first & 0x10) != 0) {
    put(extension, 0xAB);
    put(extension + 1, 0xCD);
    put(extension + 2, static_cast<u8>(extensionWords >> 8));
    put(extension + 3, static_cast<u8>(extensionWords));
  }
  return bytes;
}

TEST(RtpHeader, EveryFieldComesOut) {
  const Bytes bytes = {0xB2, 0xE0 | 0x1A, 0x12, 0x34, 0x01, 0x02, 0x03, 0x04, 0xA1, 0xA2, 0xA3, 0xA4,  // fixed
                       0xC1, 0xC2,        0xC3, 0xC4, 0xD1, 0xD2, 0xD3, 0xD4,  // two CSRC
                       0xBE, 0xDE,        0x00, 0x01, 0xF1, 0xF2, 0xF3, 0xF4,  // extension
                       0x11, 0x22,        0x02};                               // payload, padding
  const auto packet = ParseRtpHeader(bytes);
  ASSERT_TRUE(packet);
  const auto asItStands = [](auto word) {
    Bytes stands(sizeof(word));
    std::memcpy(stands.data(), &word, sizeof(word));
    return stands;
  };
  EXPECT_EQ(packet->csrcCount, 2);
  EXPECT_EQ(packet->csrcList, &bytes[12]);
  EXPECT_EQ(asItStands(packet->ssrc), (Bytes{0xA1, 0xA2, 0xA3, 0xA4}));
  EXPECT_EQ(packet->marker, 1);
  EXPECT_EQ(packet->padding, 1);
  EXPECT_EQ(packet->payloadType, 0x7A);
  EXPECT_EQ(packet->sequence, 0x1234);
  EXPECT_EQ(packet->timestamp, 0x01020304U);
  EXPECT_EQ(packet->extensionLength, 1);
  EXPECT_EQ(asItStands(packet->extensionProfile), (Bytes{0xBE, 0xDE}));
  EXPECT_EQ(packet->extensionData, &bytes[24]);
  EXPECT_EQ(packet->payload, &bytes[28]);
  EXPECT_EQ(packet->payloadSize, 3U) << "the padding stays part of the payload";
}

TEST(RtpHeader, ShortDatagramsAndOtherVersionsAreDropped) {
  for (std::size_t size = 0; size <= 13; ++size) {
    const Bytes bytes = Datagram(size, 0x80, 0);
    const auto packet = ParseRtpHeader(bytes);
    ASSERT_EQ(packet.has_value(), size == 13) << size;
    if (packet) {
      EXPECT_EQ(packet->payloadSize, 1U);
      EXPECT_EQ(packet->csrcList, nullptr);
      EXPECT_EQ(packet->extensionData, nullptr);
    }
  }
  for (const u8 version : Bytes{0x00, 0x40, 0xC0}) {
    EXPECT_FALSE(ParseRtpHeader(Datagram(100, version, 0))) << int{version};
  }
}

TEST(RtpHeader, CsrcListAndExtensionLieWithinTheDatagramOrItIsDropped) {
  for (u8 csrc = 0; csrc <= 15; ++csrc) {
    for (const int extensionWords : {-1, 0, 1, 255, 256, 65535}) {
      const bool extended = extensionWords >= 0;
      const std::size_t header =
          12 + std::size_t{csrc} * 4 + (extended ? 4 + static_cast<std::size_t>(extensionWords) * 4 : 0);
      const auto first = static_cast<u8>(0x80 | (extended ? 0x10 : 0) | csrc);
      for (const std::size_t size :
           {std::size_t{13}, std::size_t{20}, header - 4, header - 1, header, header + 1}) {
        const Bytes bytes = Datagram(size, first, static_cast<u16>(extended ? extensionWords : 0));
        const auto packet = ParseRtpHeader(bytes);
        ASSERT_EQ(packet.has_value(), size > 12 && size >= header)
            << "CC " << int{csrc} << ", extension " << extensionWords << ", size " << size;
        if (packet) {
          EXPECT_EQ(packet->payload - bytes.data(), static_cast<std::ptrdiff_t>(header));
          EXPECT_EQ(packet->payloadSize, size - header);
          EXPECT_EQ(packet->extensionLength, extended ? extensionWords : 0);
        }
      }
    }
  }
}

}  // namespace
}  // namespace sarnevo
