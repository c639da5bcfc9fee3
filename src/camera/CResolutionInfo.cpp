#include "camera/CResolutionInfo.h"

#include <array>

namespace sarnevo {

namespace {

// Milliseconds.
constexpr std::array<u32, 10> kIntervalsPAL = {1000, 500, 333, 250, 200, 166, 125, 83, 40, 33};
constexpr std::array<u32, 10> kIntervalsNTSC = {1000, 500, 333, 250, 200, 166, 142, 100, 66, 33};

}  // namespace

void CResolutionInfo::AddFrameInterval(u32 interval, u32 minimum) {
  if (interval >= minimum) {
    frameIntervals_.push_back(interval);
  }
}

void CResolutionInfo::FillFrameIntervals(u32 minimum, u32 isNTSC) {
  minFrameInterval_ = minimum;
  for (const u32 interval : isNTSC == 0 ? kIntervalsPAL : kIntervalsNTSC) {
    AddFrameInterval(interval, minimum);
  }
}

u32 CResolutionInfo::GetFirstFrameInterval() {
  nextInterval_ = 0;
  return GetNextFrameInterval();
}

u32 CResolutionInfo::GetNextFrameInterval() {
  return nextInterval_ < frameIntervals_.size() ? frameIntervals_[nextInterval_++] : 0;
}

}  // namespace sarnevo
