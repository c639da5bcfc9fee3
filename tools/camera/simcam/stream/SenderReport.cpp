#include "simcam/stream/SenderReport.h"

#include <cstddef>

namespace simcam {

namespace {

void Put(std::vector<std::uint8_t>& bytes, std::uint64_t value, int count) {
  for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

}  // namespace

std::uint64_t NtpTime(std::chrono::system_clock::time_point time) {
  constexpr std::uint64_t kFrom1900To1970 = 2'208'988'800;  // seconds
  const auto micros = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count());
  const std::uint64_t fraction = ((micros % 1'000'000) << 32U) / 1'000'000;
  return (micros / 1'000'000 + kFrom1900To1970) << 32U | fraction;
}

std::vector<std::uint8_t> BuildSenderReport(const SenderReport& report, std::string_view cname) {
  std::vector<std::uint8_t> bytes;
  Put(bytes, 0x80C8'0006, 4);  // version 2, no report block; type 200; 7 words
  Put(bytes, report.ssrc, 4);
  Put(bytes, report.ntp, 8);
  Put(bytes, report.rtpTimestamp, 4);
  Put(bytes, report.packets, 4);
  Put(bytes, report.octets, 4);

  // SDES (RFC 3550, 6.5): one chunk, closed by one to four zero bytes up to a word's end.
  const std::size_t name = cname.size() < 255 ? cname.size() : 255;
  const std::size_t words = (4 + 2 + name) / 4 + 1;
  Put(bytes, 0x81CA, 2);
  Put(bytes, words, 2);
  Put(bytes, report.ssrc, 4);
  Put(bytes, 1, 1);  // CNAME
  Put(bytes, name, 1);
  bytes.insert(bytes.end(), cname.begin(), cname.begin() + static_cast<std::ptrdiff_t>(name));
  bytes.resize(28 + 4 + 4 * words, 0);
  return bytes;
}

}  // namespace simcam
