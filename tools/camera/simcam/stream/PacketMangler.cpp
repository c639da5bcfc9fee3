#include "simcam/stream/PacketMangler.h"

#include <algorithm>
#include <utility>

namespace simcam {

namespace {

constexpr std::size_t kRtpHeader = 12;

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
  if (faults.garbage.Strikes(dice_, ordinal_)) {
    std::vector<std::uint8_t> noise(Below(1400));
    std::generate(noise.begin(), noise.end(), [this] { return static_cast<std::uint8_t>(dice_()); });
    send(noise);
    ++counts.garbage;
  }
  const std::vector<std::uint8_t> overtaken = std::exchange(held_, {});
  if (faults.lose.Strikes(dice_, ordinal_)) {
    ++counts.lost;
  } else if (faults.reorder.Strikes(dice_, ordinal_)) {
    held_ = std::move(datagram);
    ++counts.reordered;
  } else {
    send(datagram);
    if (faults.duplicate.Strikes(dice_, ordinal_)) {
      send(datagram);
      ++counts.duplicated;
    }
  }
  if (!overtaken.empty()) {
    send(overtaken);
  }
}

}  // namespace simcam
