#include "protocols/CRTPPacket.h"

#include <cstring>

#include "protocols/BigEndian.h"

namespace sarnevo {

namespace {

constexpr u32 kFixedBytes = 12;
constexpr u32 kExtensionHeaderBytes = 4;
constexpr u32 kWordBytes = 4;

template <typename Word>
Word CopyUnchanged(const u8* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof(word));
  return word;
}

}  // namespace

std::optional<CRTPPacket> ParseRtpHeader(std::span<const u8> datagram) noexcept {
  const u8* const data = datagram.data();
  if (datagram.size() <= kFixedBytes || data[0] >> 6 != 2) {
    return std::nullopt;
  }
  // The header can't grow past 12 + 60 + 4 + 262,140 bytes, so that this never overflows.
  u32 length = kFixedBytes;
  std::optional<CRTPPacket> parsed(std::in_place);
  CRTPPacket& packet = *parsed;

  packet.csrcCount = data[0] & 0x0F;
  if (packet.csrcCount != 0) {
    packet.csrcList = data + kFixedBytes;
    length += packet.csrcCount * kWordBytes;
  }
  if ((data[0] & 0x10) != 0) {
    length += kExtensionHeaderBytes;
    if (datagram.size() < length) {
      return std::nullopt;
    }
    packet.extensionProfile = CopyUnchanged<u16>(data + length - 4);
    packet.extensionLength = ReadU16(data + length - 2);
    packet.extensionData = data + length;
    length += packet.extensionLength * kWordBytes;
  }
  if (datagram.size() < length) {
    return std::nullopt;
  }
  packet.padding = (data[0] & 0x20) != 0;
  packet.marker = (data[1] & 0x80) != 0;
  packet.payloadType = data[1] & 0x7F;
  packet.sequence = ReadU16(data + 2);
  packet.timestamp = ReadU32(data + 4);
  packet.ssrc = CopyUnchanged<u32>(data + 8);
  packet.payload = data + length;
  packet.payloadSize = static_cast<u32>(datagram.size()) - length;
  return parsed;
}

}  // namespace sarnevo
