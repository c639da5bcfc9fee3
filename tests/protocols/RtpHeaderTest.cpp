#include "protocols/RtpHeader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace sarnevo {
namespace {

using Bytes = std::vector<u8>;

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

TEST(RtpHeader, AllOfItLiesWithinADatagramOfVersion2OrItIsDropped) {
  for (u32 first = 0; first <= 0xFF; ++first) {
    const std::size_t csrcEnd = 12 + (first & 0x0FU) * 4;
    for (const std::size_t words : {std::size_t{0}, std::size_t{1}, std::size_t{255}, std::size_t{65535}}) {
      const std::size_t header = csrcEnd + ((first & 0x10U) != 0 ? 4 + words * 4 : 0);
      for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{12}, std::size_t{13},
                                     csrcEnd + 3, header - 4, header - 1, header, header + 1}) {
        Bytes bytes(header + 4, 0xEE);
        bytes[0] = static_cast<u8>(first);
        bytes[csrcEnd + 2] = static_cast<u8>(words >> 8);
        bytes[csrcEnd + 3] = static_cast<u8>(words);
        bytes = Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(size, bytes.size())));
        bytes.shrink_to_fit();  // so that a read past its end is seen by the sanitizer
        const auto packet = ParseRtpHeader(bytes);
        ASSERT_EQ(packet.has_value(), first >> 6 == 2 && bytes.size() > 12 && bytes.size() >= header)
            << "first byte " << first << ", extension " << words << ", size " << bytes.size();
        if (packet) {
          EXPECT_EQ(packet->payload - bytes.data(), static_cast<std::ptrdiff_t>(header));
          EXPECT_EQ(packet->payloadSize, bytes.size() - header);
          EXPECT_EQ(packet->csrcList != nullptr, csrcEnd > 12);
          EXPECT_EQ(packet->extensionData != nullptr, (first & 0x10U) != 0);
        }
      }
    }
  }
}

}  // namespace
}  // namespace sarnevo
