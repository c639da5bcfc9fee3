#include "protocols/RtcpAnswer.h"

#include <algorithm>

#include "protocols/BigEndian.h"

namespace sarnevo {

namespace {

constexpr std::size_t kMinReportBytes = 20;  // up to and including the RTP timestamp
constexpr std::size_t kCnameBytes = 26;
constexpr u8 kVersion2Count1 = 0x81;

}  // namespace

std::optional<std::array<u8, kRtcpAnswerBytes>> AnswerSenderReport(std::span<const u8> report, u32 ssrc,
                                                                   std::string_view cname,
                                                                   u16 lastSequence) noexcept {
  if (report.size() < kMinReportBytes) {
    return std::nullopt;
  }
  // We count neither losses nor jitter: those fields stay zero.
  std::optional<std::array<u8, kRtcpAnswerBytes>> answer(std::in_place);
  u8* const at = answer->data();

  at[0] = kVersion2Count1;
  at[1] = 201;                           // receiver report
  PutU16(at + 2, 7);                     // its length in words, less one
  PutU32(at + 4, ssrc);                  //
  std::copy_n(&report[4], 4, at + 8);    // SSRC of the source
  PutU16(at + 18, lastSequence);         // highest sequence number; its cycle count at 16 stays 0
  std::copy_n(&report[10], 4, at + 24);  // last SR: the middle of the report's NTP timestamp
  PutU32(at + 28, 1);                    // delay since it, in 1/65536 s

  at[32] = kVersion2Count1;
  at[33] = 202;        // source description
  PutU16(at + 34, 5);  // too few words for what follows, but what these cameras have always been sent
  PutU32(at + 36, ssrc);
  at[40] = 1;                              // CNAME
  at[41] = static_cast<u8>(cname.size());  // of the whole name, also when it is cut
  std::copy_n(cname.data(), std::min(cname.size(), kCnameBytes), at + 42);
  return answer;
}

}  // namespace sarnevo
