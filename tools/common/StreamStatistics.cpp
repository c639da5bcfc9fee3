#include "StreamStatistics.h"

#include <algorithm>

namespace kolvex_host {

namespace {

/// A frame this many intervals after the one before it is late: half an interval is ordinary unrest, and
/// one frame lost gives two.
constexpr double kLateIntervals = 2.5;

/// A stream that brings nothing for so long doesn't run.
constexpr Seconds kOutage{2};
constexpr std::size_t kMostOutages = 1000;
constexpr Seconds kRecent{1};

}  // namespace

double StreamCounts::RunningSeconds() const {
  return first ? std::max(0.0, Seconds(last - *first - outageTime).count()) : 0;
}

double StreamCounts::FramesPerSecond() const {
  const double span = RunningSeconds();
  // The frame that ends an outage is the first of a new span.
  return span > 0 && frames > outageCount + 1 ? static_cast<double>(frames - 1 - outageCount) / span : 0;
}

double StreamCounts::KilobytesPerSecond() const {
  const double span = RunningSeconds();
  // The frame that ends the span begins the next one.
  return span > 0 ? static_cast<double>(bytes - lastBytes) / 1000 / span : 0;
}

void StreamStatistics::AddGap(SteadyTime now) {
  const Seconds gap = now - counts_.last;
  if (gap < kOutage) {
    return;
  }
  if (counts_.outages.size() < kMostOutages) {
    counts_.outages.push_back({counts_.last, gap});
  }
  counts_.outageTime += gap;
  ++counts_.outageCount;
}

void StreamStatistics::AddFrame(SteadyTime now, std::size_t bytes, bool isKey, sarnevo::u32 width,
                                sarnevo::u32 height) {
  const std::lock_guard guard(lock_);
  ++counts_.frames;
  counts_.keyFrames += isKey ? 1 : 0;
  counts_.width = width;
  counts_.height = height;
  if (!counts_.first) {
    counts_.first = now;
  } else {
    const Seconds gap = now - counts_.last;
    counts_.longestGap = std::max(counts_.longestGap, gap);
    if (frameInterval_ != 0 && gap.count() * 1000 > kLateIntervals * frameInterval_) {
      ++counts_.gaps;
    }
    AddGap(now);
  }
  counts_.bytes += bytes;
  counts_.lastBytes = bytes;
  counts_.last = now;
  recent_.emplace_back(now, bytes);
  while (now - recent_.front().first > kRecent) {
    recent_.pop_front();
  }
}

void StreamStatistics::AddNoData() {
  const std::lock_guard guard(lock_);
  ++counts_.noData;
}

StreamCounts StreamStatistics::Counts() const {
  const SteadyTime now = std::chrono::steady_clock::now();
  const std::lock_guard guard(lock_);
  StreamCounts counts = counts_;
  for (const auto& [time, bytes] : recent_) {
    if (now - time <= kRecent) {
      counts.recentFrames += 1;
      counts.recentKilobytes += static_cast<double>(bytes) / 1000;
    }
  }
  return counts;
}

void StreamStatistics::End(SteadyTime now) {
  const std::lock_guard guard(lock_);
  if (!counts_.first || now - counts_.last < kOutage) {
    return;
  }
  // It lies after the last frame, so that it is listed without being part of the time up to that frame.
  if (counts_.outages.size() < kMostOutages) {
    counts_.outages.push_back({counts_.last, now - counts_.last});
  }
}

}  // namespace kolvex_host
