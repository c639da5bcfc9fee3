#pragma once

#include <chrono>
#include <mutex>
#include <optional>

#include "kolvex/Types.h"

namespace kolvex_host {

using SteadyTime = std::chrono::steady_clock::time_point;
using Seconds = std::chrono::duration<double>;

/// What one stream has brought so far.
struct StreamCounts {
  sarnevo::u64 frames = 0;
  sarnevo::u64 keyFrames = 0;
  sarnevo::u64 bytes = 0;
  sarnevo::u64 lastBytes = 0;  ///< of the latest frame
  sarnevo::u64 noData = 0;     ///< calls of OnNoData; one at the start is usual
  sarnevo::u64 gaps = 0;       ///< frames that came later than 2.5 frame intervals after the one before
  Seconds longestGap{0};       ///< between two frames
  sarnevo::u32 width = 0;      ///< pixels, of the latest frame
  sarnevo::u32 height = 0;
  std::optional<SteadyTime> first;
  SteadyTime last{};

  /// Frames per second between the first and the last frame; 0 with fewer than two frames.
  double FramesPerSecond() const;
  /// 1000 bytes per second over the same time.
  double KilobytesPerSecond() const;
};

/// Counts the frames of one stream as they arrive. The library's threads write, the program's main thread
/// reads.
class StreamStatistics {
 public:
  /// @p frameInterval is the wanted pace in milliseconds; 0 when it isn't known.
  explicit StreamStatistics(sarnevo::u32 frameInterval) : frameInterval_(frameInterval) {}

  void AddFrame(SteadyTime now, std::size_t bytes, bool isKey, sarnevo::u32 width, sarnevo::u32 height);
  void AddNoData();
  StreamCounts Counts() const;

 private:
  const sarnevo::u32 frameInterval_;
  mutable std::mutex lock_;
  StreamCounts counts_;  // guarded by lock_
};

}  // namespace kolvex_host
