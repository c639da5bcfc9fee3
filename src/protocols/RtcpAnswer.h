#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "kolvex/Types.h"

namespace sarnevo {

inline constexpr std::size_t kRtcpAnswerBytes = 68;

/// Builds the answer to a sender report (RFC 3550, 6.4): a receiver report and a source description in one
/// datagram. A pure step; any thread may call.
///
/// @param report        the datagram to answer. Only its size is judged.
/// @param ssrc          our own, host byte order
/// @param cname         our canonical name; the first 26 bytes of it go out
/// @param lastSequence  sequence number of the last RTP packet, 0 before the first.
/// @return nothing when @p report is shorter than 20 bytes and thus has no RTP timestamp.
std::optional<std::array<u8, kRtcpAnswerBytes>> AnswerSenderReport(std::span<const u8> report, u32 ssrc,
                                                                   std::string_view cname,
                                                                   u16 lastSequence) noexcept;

}  // namespace sarnevo
