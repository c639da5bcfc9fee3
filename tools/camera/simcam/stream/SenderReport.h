#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <vector>

namespace simcam {

/// What a sender report says (RFC 3550, 6.4.1).
struct SenderReport {
  std::uint32_t ssrc = 0;
  std::uint64_t ntp = 0;  ///< seconds since 1900 in the upper half, their fraction in the lower
  std::uint32_t rtpTimestamp = 0;
  std::uint32_t packets = 0;
  std::uint32_t octets = 0;  ///< payload only

  /// The middle 32 bits of the time, which a receiver sends back.
  std::uint32_t lastSr() const { return static_cast<std::uint32_t>(ntp >> 16U); }
};

std::uint64_t NtpTime(std::chrono::system_clock::time_point time);

/// A compound packet: the sender report without report blocks and an SDES packet with the CNAME.
std::vector<std::uint8_t> BuildSenderReport(const SenderReport& report, std::string_view cname);

}  // namespace simcam
