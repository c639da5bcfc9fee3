#pragma once

#include <cstddef>
#include <span>

#include "kolvex/Types.h"

namespace sarnevo {

/// Reads bits, the highest of each byte first, and never beyond the end: from there on all is 0 and
/// HasFailed says so.
class BitReader {
 public:
  explicit BitReader(std::span<const u8> bytes) noexcept : bytes_(bytes) {}

  /// @param count  up to 32
  u32 Read(std::size_t count) noexcept {
    if (count > bytes_.size() * 8 - position_) {
      failed_ = true;
      position_ = bytes_.size() * 8;
      return 0;
    }
    u32 value = 0;
    for (; count > 0; --count, ++position_) {
      const u32 bit = (bytes_[position_ / 8] >> (7 - position_ % 8)) & 1U;
      value = value << 1 | bit;
    }
    return value;
  }

  bool ReadFlag() noexcept { return Read(1) != 0; }
  void Skip(std::size_t count) noexcept {
    for (; count > 32; count -= 32) {
      Read(32);
    }
    Read(count);
  }
  /// A bit that the standard fixes at 1, so that no start code appears by chance.
  void Marker() noexcept { failed_ = !ReadFlag() || failed_; }
  void Fail() noexcept { failed_ = true; }
  bool HasFailed() const noexcept { return failed_; }

 private:
  std::span<const u8> bytes_;
  std::size_t position_ = 0;  // bits
  bool failed_ = false;
};

}  // namespace sarnevo
