#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace simcam {

/// What the answer to a sender report must fit.
struct ReportExpectation {
  std::uint32_t ssrc = 0;          ///< ours
  std::uint32_t lastSr = 0;        ///< of the report that is being answered
  std::uint16_t lastSequence = 0;  ///< the newest packet that was sent
  bool sentAny = false;
};

/// Checks a driver's answer: one datagram of 68 bytes, a receiver report with one block (RFC 3550, 6.4.2) and
/// a source description of fixed size whose length field counts 5 words. Empty when all is right, else what
/// is wrong with the first field that is.
std::string CheckReceiverReport(std::span<const std::uint8_t> datagram, const ReportExpectation& expected);

}  // namespace simcam
