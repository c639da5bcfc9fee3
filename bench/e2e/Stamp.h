#pragma once

#include <time.h>

#include <cstdint>
#include <cstring>
#include <optional>

#include "kolvex/Types.h"

namespace kolvex_bench {

/// The last bytes of each frame: a mark, and when its last packet left, by the clock that all processes share.
struct Stamp {
  std::uint64_t mark = kMark;
  std::int64_t nanoseconds = 0;

  static constexpr std::uint64_t kMark = 0x5A5AC10C0C1A5A5A;

  static std::int64_t Now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
  }

  /// The age of a frame; nothing when it doesn't end with a stamp, so isn't whole.
  static std::optional<std::int64_t> AgeOf(const sarnevo::u8* frame, std::size_t size) {
    Stamp stamp{0, 0};
    if (size < sizeof(stamp)) {
      return std::nullopt;
    }
    std::memcpy(&stamp, frame + size - sizeof(stamp), sizeof(stamp));
    return stamp.mark == kMark ? std::optional(Now() - stamp.nanoseconds) : std::nullopt;
  }
};

}  // namespace kolvex_bench
