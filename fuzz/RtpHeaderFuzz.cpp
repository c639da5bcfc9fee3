// The header of an RTP packet, field by field, as RFC 3550, 5.1 and 5.3.1, lays it out.
#include <cstring>

#include "FuzzTarget.h"
#include "protocols/CRTPPacket.h"

using kolvex_fuzz::Bytes;
using kolvex_fuzz::Check;

namespace {

// Whether a word that is kept as it was sent is what is there.
template <typename Word>
bool IsAt(Word word, Bytes at) {
  return std::memcmp(&word, at.data(), sizeof(word)) == 0;
}

}  // namespace

FUZZ_TARGET(RtpHeader) {
  const auto packet = sarnevo::ParseRtpHeader(input);
  std::size_t size = 12;
  std::size_t sources = 0;
  std::size_t words = 0;
  bool isExtended = false;
  bool isWhole = input.size() > 12 && input[0] / 64 == 2;
  if (isWhole) {
    sources = input[0] % 16U;
    size += 4 * sources;
    isExtended = (input[0] & 16) != 0;
    isWhole = input.size() >= size + (isExtended ? 4 : 0);
  }
  if (isWhole && isExtended) {
    words = input[size + 2] * 256U + input[size + 3];
    size += 4 + 4 * words;
    isWhole = input.size() >= size;
  }
  Check(packet.has_value() == isWhole, "what is whole and of version 2 passes, and nothing else");
  if (!packet) {
    return;
  }
  Check(packet->padding == (input[0] & 32) / 32 && packet->marker == input[1] / 128 &&
            packet->payloadType == input[1] % 128,
        "flags and type");
  Check(packet->sequence == input[2] * 256U + input[3], "the sequence number");
  Check(packet->timestamp == ((input[4] * 256U + input[5]) * 256U + input[6]) * 256U + input[7], "the time");
  Check(IsAt(packet->ssrc, input.subspan(8)), "the source");
  Check(packet->csrcCount == sources && packet->csrcList == (sources != 0 ? input.data() + 12 : nullptr),
        "a list only where there are sources");
  Check(packet->extensionLength == words &&
            packet->extensionData == (isExtended ? input.data() + 16 + 4 * sources : nullptr) &&
            (!isExtended || IsAt(packet->extensionProfile, input.subspan(12 + 4 * sources))),
        "the extension");
  Check(packet->payload == input.data() + size && packet->payloadSize == input.size() - size,
        "the payload goes on to the datagram's end, padding and all");
}
