#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "kolvex/Types.h"

namespace sarnevo {

inline constexpr std::size_t kRtcpAnswerBytes = 68;

/// What we say about ourselves in an answer to a sender report.
struct RtcpIdentity {
  u32 ssrc = 0;            ///< our own, host byte order
  std::string_view cname;  ///< canonical name; the first 26 bytes of it go out
};

/// Builds the answer to a sender report (RFC 3550, 6.4): a receiver report and a source description in one
/// datagram. A pure step; any thread may call.
///
/// @param report        the datagram to answer. Only its size is judged.
/// @param lastSequence  sequence number of the last RTP packet, 0 before the first.
/// @return nothing when @p report is shorter than 20 bytes and thus has no RTP timestamp.
std::optional<std::array<u8, kRtcpAnswerBytes>> AnswerSenderReport(std::span<const u8> report,
                                                                   const RtcpIdentity& self,
                                                                   u16 lastSequence) noexcept;

}  // namespace sarnevo
