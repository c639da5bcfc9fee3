#pragma once

#include <optional>
#include <span>

#include "kolvex/Types.h"

namespace sarnevo {

/// One RTP packet (RFC 3550, 5.1), as ParseRtpHeader finds it in a datagram. The pointers point into that
/// datagram, unaligned, and live as long as it does.
struct CRTPPacket {
  u8 csrcCount = 0;                   ///< CC, number of CSRC words
  const u8* csrcList = nullptr;       ///< the CSRC words; null when there are none
  u32 ssrc = 0;                       ///< in network byte order, as it was sent
  u8 marker = 0;                      ///< M: 1 in the last packet of a frame
  u8 padding = 0;                     ///< P; the padding stays part of the payload
  u8 payloadType = 0;                 ///< PT, 7 bits
  u16 sequence = 0;                   ///< host byte order
  u32 timestamp = 0;                  ///< host byte order, in units of the payload's clock
  u16 extensionLength = 0;            ///< 32-bit words of the header extension, host byte order; 0 without one
  u16 extensionProfile = 0;           ///< in network byte order, as it was sent
  const u8* extensionData = nullptr;  ///< what comes after the extension's own 4 bytes; null without one
  u32 payloadSize = 0;                ///< bytes, may be 0
  const u8* payload = nullptr;        ///< the first byte after header, CSRC list and extension
};

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
