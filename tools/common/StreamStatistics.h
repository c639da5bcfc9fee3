#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "kolvex/Types.h"

namespace kolvex_host {

using SteadyTime = std::chrono::steady_clock::time_point;
using Seconds = std::chrono::duration<double>;

/// A time in which a stream that had begun brought nothing.
struct Outage {
  SteadyTime start;
  Seconds length{0};
};

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

  std::vector<Outage> outages;  ///< the first 1000 of them
  Seconds outageTime{0};        ///< of all outages
  sarnevo::u64 outageCount = 0;
  double recentFrames = 0;     ///< frames of the last second
  double recentKilobytes = 0;  ///< 1000 bytes of the last second

  /// Seconds in which the stream ran: from the first to the last frame, outages left out.
  double RunningSeconds() const;
  /// Frames per second of that time; 0 with fewer than two frames.
  double FramesPerSecond() const;
  /// 1000 bytes per second of that time.
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
  /// The stream is over: what it lacked up to now is an outage, too.
  void End(SteadyTime now);

 private:
  const sarnevo::u32 frameInterval_;
  void AddGap(SteadyTime now);

  mutable std::mutex lock_;
  StreamCounts counts_;                                    // guarded by lock_
  std::deque<std::pair<SteadyTime, std::size_t>> recent_;  // arrivals of the last second; guarded by lock_
};

}  // namespace kolvex_host
