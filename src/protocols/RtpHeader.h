#pragma once

#include <optional>
#include <span>

#include "kolvex/Types.h"
#include "protocols/CRTPPacket.h"

namespace sarnevo {

/// Reads the header of an RTP packet (RFC 3550, 5.1 and 5.3.1). A pure step; any thread may call.
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |V=2|P|X|  CC   |M|     PT      |       sequence number         |
///     |                           timestamp                           |
///     |                             SSRC                              |
///     |                  CSRC list, CC words of 4 bytes               |
///     |    X: defined by profile      |   X: length in words          |
///     |                      X: header extension                      |
///     +---------------------------------------------------------------+
///
/// @return nothing for a datagram that isn't version 2, has no byte after the fixed header of 12 bytes, or
///         whose CSRC list or extension runs past its end. Payload type, SSRC and sequence aren't judged.
std::optional<CRTPPacket> ParseRtpHeader(std::span<const u8> datagram) noexcept;

}  // namespace sarnevo
