#include "StreamStatistics.h"

#include <algorithm>

namespace kolvex_host {

namespace {

/// A frame this many intervals after the one before it is late: half an interval is ordinary unrest, and
/// one frame lost gives two.
constexpr double kLateIntervals = 2.5;

double Span(const StreamCounts& counts) {
  return counts.first ? Seconds(counts.last - *counts.first).count() : 0;
}

}  // namespace

double StreamCounts::FramesPerSecond() const {
  const double span = Span(*this);
  return span > 0 ? static_cast<double>(frames - 1) / span : 0;
}

double StreamCounts::KilobytesPerSecond() const {
  const double span = Span(*this);
  // The frame that ends the span begins the next one.
  return span > 0 ? static_cast<double>(bytes - lastBytes) / 1000 / span : 0;
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
  }
  counts_.bytes += bytes;
  counts_.lastBytes = bytes;
  counts_.last = now;
}

void StreamStatistics::AddNoData() {
  const std::lock_guard guard(lock_);
  ++counts_.noData;
}

StreamCounts StreamStatistics::Counts() const {
  const std::lock_guard guard(lock_);
  return counts_;
}

}  // namespace kolvex_host
