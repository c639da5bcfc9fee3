#include "simcam/stream/PacketMangler.h"

#include <algorithm>
#include <utility>

namespace simcam {

namespace {

constexpr std::size_t kRtpHeader = 12;
constexpr std::size_t kOversize = 6000;  // bytes; more than any camera sends in one datagram
constexpr std::uint8_t kVersion = 0x80;
constexpr std::uint8_t kUnassignedType = 77;

void AddToSequence(std::vector<std::uint8_t>& datagram, int difference) {
  const auto number = static_cast<std::uint16_t>((datagram[2] << 8 | datagram[3]) + difference);
  datagram[2] = static_cast<std::uint8_t>(number >> 8);
  datagram[3] = static_cast<std::uint8_t>(number);
}

}  // namespace

void PacketMangler::SwapSequence(PacketFaults& faults, FaultCounts& counts,
                                 std::vector<std::uint8_t>& datagram) {
  if (std::exchange(swapping_, false)) {
    AddToSequence(datagram, -1);
  } else if (faults.swap.Strikes(dice_, ordinal_)) {
    AddToSequence(datagram, 1);
    swapping_ = true;
    ++counts.swapped;
  }
}

std::vector<std::uint8_t> PacketMangler::Noise(std::size_t size) {
  std::vector<std::uint8_t> noise(size);
  std::generate(noise.begin(), noise.end(), [this] { return static_cast<std::uint8_t>(dice_()); });
  return noise;
}

void PacketMangler::SendInFront(PacketFaults& faults, FaultCounts& counts, const Send& send) {
  if (faults.garbage.Strikes(dice_, ordinal_)) {
    send(Noise(Below(1400)), From::Camera);
    ++counts.garbage;
  }
  if (faults.oversize.Strikes(dice_, ordinal_)) {
    send(Noise(kOversize), From::Camera);
    ++counts.oversized;
  }
  if (faults.empty.Strikes(dice_, ordinal_)) {
    send({}, From::Camera);
    ++counts.emptied;
  }
  if (faults.stranger.Strikes(dice_, ordinal_)) {
    std::vector<std::uint8_t> packet = Noise(100);
    packet[0] = kVersion;
    send(packet, From::Stranger);
    ++counts.strangers;
  }
}

void PacketMangler::Process(PacketFaults& faults, FaultCounts& counts, std::vector<std::uint8_t> datagram,
                            const Send& send) {
  ++ordinal_;
  SwapSequence(faults, counts, datagram);
  if (faults.unmark.Strikes(dice_, ordinal_) && (datagram[1] & 0x80) != 0) {
    datagram[1] &= 0x7F;
    ++counts.unmarked;
  }
  if (faults.corrupt.Strikes(dice_, ordinal_) && datagram.size() > kRtpHeader) {
    for (std::size_t left = 1 + Below(8); left > 0; --left) {
      datagram[kRtpHeader + Below(datagram.size() - kRtpHeader)] ^= static_cast<std::uint8_t>(1 + Below(255));
    }
    ++counts.corrupted;
  }
  if (faults.truncate.Strikes(dice_, ordinal_)) {
    datagram.resize(Below(datagram.size()));
    ++counts.truncated;
  }
  if (faults.mistype.Strikes(dice_, ordinal_) && datagram.size() > 1) {
    datagram[1] = static_cast<std::uint8_t>((datagram[1] & 0x80) | kUnassignedType);
    ++counts.mistyped;
  }
  SendInFront(faults, counts, send);
  const std::vector<std::uint8_t> overtaken = std::exchange(held_, {});
  if (faults.lose.Strikes(dice_, ordinal_)) {
    ++counts.lost;
  } else if (faults.reorder.Strikes(dice_, ordinal_)) {
    held_ = std::move(datagram);
    ++counts.reordered;
  } else {
    send(datagram, From::Camera);
    if (faults.duplicate.Strikes(dice_, ordinal_)) {
      send(datagram, From::Camera);
      ++counts.duplicated;
    }
  }
  if (!overtaken.empty()) {
    send(overtaken, From::Camera);
  }
}

}  // namespace simcam
