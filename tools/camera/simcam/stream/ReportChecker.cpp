#include "simcam/stream/ReportChecker.h"

#include <algorithm>
#include <array>

#include "simcam/base/Text.h"

namespace simcam {

namespace {

struct Field {
  std::size_t offset, size;
  std::uint32_t value;
  const char* name;
};

// The fields that are the same in each answer. The reporter counts no losses and no jitter and always claims
// a delay of 1/65536 s.
constexpr std::array kConstants = {
    Field{0, 1, 0x81, "version and report count"},
    Field{1, 1, 201, "packet type of the receiver report"},
    Field{2, 2, 7, "length of the receiver report"},
    Field{12, 4, 0, "losses"},
    Field{16, 2, 0, "sequence cycles"},
    Field{20, 4, 0, "jitter"},
    Field{28, 4, 1, "delay since the last report"},
    Field{32, 1, 0x81, "version and source count"},
    Field{33, 1, 202, "packet type of the source description"},
    Field{34, 2, 5, "length of the source description"},
    Field{40, 1, 1, "item type"},
};

std::uint32_t Read(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    value = value << 8U | bytes[offset + i];
  }
  return value;
}

bool NameFits(std::span<const std::uint8_t> datagram) {
  constexpr std::size_t kRoom = 26;
  const std::span<const std::uint8_t> name = datagram.subspan(42, kRoom);
  const std::size_t length = std::min<std::size_t>(datagram[41], kRoom);
  const auto end = name.begin() + static_cast<std::ptrdiff_t>(length);
  return length > 0 && std::find(name.begin(), end, 0) == end &&
         std::all_of(end, name.end(), [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

std::string CheckReceiverReport(std::span<const std::uint8_t> datagram, const ReportExpectation& expected) {
  constexpr std::size_t kSize = 68;
  constexpr unsigned kNewestWithin = 8192;  // packets that may be under way
  if (datagram.size() != kSize) {
    return Format("%zu bytes long, not 68", datagram.size());
  }
  for (const Field& field : kConstants) {
    const std::uint32_t value = Read(datagram, field.offset, field.size);
    if (value != field.value) {
      return Format("%s is %u, not %u", field.name, value, field.value);
    }
  }
  if (const std::uint32_t ssrc = Read(datagram, 8, 4); ssrc != expected.ssrc) {
    return Format("reports on SSRC %08x, ours is %08x", ssrc, expected.ssrc);
  }
  if (Read(datagram, 36, 4) != Read(datagram, 4, 4)) {
    return "describes another source than it reports from";
  }
  if (const std::uint32_t last = Read(datagram, 24, 4); last != expected.lastSr) {
    return Format("answers the report of %08x, the last was %08x", last, expected.lastSr);
  }
  const std::uint32_t sequence = Read(datagram, 18, 2);
  const auto behind = static_cast<std::uint16_t>(expected.lastSequence - sequence);
  if (sequence != 0 && (!expected.sentAny || behind > kNewestWithin)) {
    return Format("has seen sequence number %u, the newest is %u", sequence, expected.lastSequence);
  }
  if (!NameFits(datagram)) {
    return "name doesn't fit its length";
  }
  return {};
}

}  // namespace simcam
