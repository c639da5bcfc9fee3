#pragma once

#include <cstddef>
#include <vector>

#include "kolvex/Types.h"

namespace sarnevo {

/// One resolution of a camera with its frame intervals.
class CResolutionInfo {
 public:
  /// Appends the interval if it isn't below the minimum. Milliseconds.
  void AddFrameInterval(u32 interval, u32 minimum);
  /// Stores the minimum and adds the family's usual intervals, without those below it.
  /// @param isNTSC  not 0: those of NTSC, else of PAL
  void FillFrameIntervals(u32 minimum, u32 isNTSC);

  /// The intervals in the order of adding, one a call; 0 after the last.
  u32 GetFirstFrameInterval();
  u32 GetNextFrameInterval();
  const std::vector<u32>& FrameIntervals() const noexcept { return frameIntervals_; }

  u32 GetMinFrameInterval() const noexcept { return minFrameInterval_; }
  void SetMinFrameInterval(u32 milliseconds) noexcept { minFrameInterval_ = milliseconds; }
  /// Group 1: 1, 2 or 4 for the small, middle and large size; group 2: 0.
  u32 GetResolutionId() const noexcept { return resolutionId_; }
  void SetResolutionId(u32 id) noexcept { resolutionId_ = id; }
  /// Pixels.
  u16 GetWidth() const noexcept { return width_; }
  u16 GetHeight() const noexcept { return height_; }
  void SetSize(u16 width, u16 height) noexcept {
    width_ = width;
    height_ = height;
  }

 private:
  u32 minFrameInterval_ = 0;  // milliseconds
  std::vector<u32> frameIntervals_;
  std::size_t nextInterval_ = 0;
  u32 resolutionId_ = 0;
  u16 width_ = 0;
  u16 height_ = 0;
};

}  // namespace sarnevo
