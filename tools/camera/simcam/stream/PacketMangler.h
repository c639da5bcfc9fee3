#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <vector>

#include "simcam/device/Faults.h"

namespace simcam {

/// Spoils the datagrams of one stream as the faults say. With the same seed, faults and datagrams the same
/// comes out.
class PacketMangler {
 public:
  enum class From : std::uint8_t { Camera, Stranger };
  using Send = std::function<void(std::span<const std::uint8_t>, From)>;

  explicit PacketMangler(std::uint64_t seed) : dice_(seed) {}

  /// Takes one RTP datagram of at least 12 bytes and sends what becomes of it: nothing, one or several.
  void Process(PacketFaults& faults, FaultCounts& counts, std::vector<std::uint8_t> datagram, const Send& send);

 private:
  void SendInFront(PacketFaults& faults, FaultCounts& counts, const Send& send);
  std::vector<std::uint8_t> Noise(std::size_t size);
  void SwapSequence(PacketFaults& faults, FaultCounts& counts, std::vector<std::uint8_t>& datagram);
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(dice_() % limit); }

  std::mt19937_64 dice_;
  std::uint64_t ordinal_ = 0;
  std::vector<std::uint8_t> held_;  // waits for the next packet to overtake it
  bool swapping_ = false;           // the next packet gets the number of the one before
};

}  // namespace simcam
