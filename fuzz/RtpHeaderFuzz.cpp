#include "FuzzTarget.h"
#include "protocols/RtpHeader.h"

using kolvex_fuzz::Check;

FUZZ_TARGET(RtpHeader) {
  const auto packet = sarnevo::ParseRtpHeader(input);
  if (!packet) {
    return;
  }
  const auto* const end = input.data() + input.size();
  Check(input.size() > 12 && input[0] >> 6 == 2, "only version 2 with something behind the header passes");
  Check(packet->payload >= input.data() + 12 && packet->payload <= end, "the payload begins in the datagram");
  Check(packet->payload + packet->payloadSize == end, "the payload ends with the datagram");
  Check((packet->csrcList == nullptr) == (packet->csrcCount == 0), "a list only where there are sources");
  if (packet->csrcList != nullptr) {
    Check(packet->csrcList + packet->csrcCount * 4 <= packet->payload,
          "the sources lie in front of the payload");
  }
  if (packet->extensionData != nullptr) {
    Check(packet->extensionData + packet->extensionLength * 4 == packet->payload,
          "the extension reaches up to the payload");
  }
}
