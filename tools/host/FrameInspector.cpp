#include "FrameInspector.h"

#include "simcam/FrameCounter.h"

namespace kolvex_host {

namespace {

/// After so many pictures without a counter none is expected any more.
constexpr sarnevo::u64 kTrialFrames = 10;

}  // namespace

std::optional<sarnevo::u64> FrameInspector::Inspect(const PooledFrame& frame) {
  if (counts_.counted == 0 && counts_.HasGood() && counts_.decoded >= kTrialFrames) {
    return std::nullopt;
  }
  if (!counts_.HasGood() && !frame.IsKey()) {
    return std::nullopt;  // it lacks those before it, which is nobody's damage
  }
  ++counts_.decoded;
  if (!decoder_.Decode(frame.Bytes())) {
    ++counts_.damaged;
    return std::nullopt;
  }
  const Luma luma = decoder_.GetLuma();
  const auto counter = simcam::ReadFrameCounter(luma.pixels, luma.width, luma.height, luma.stride);
  if (counter) {
    ++counts_.counted;
    Follow(*counter);
  }
  return counter;
}

void FrameInspector::Follow(sarnevo::u64 counter) {
  if (last_ && counter == *last_) {
    ++counts_.doubled;
  } else if (last_ && counter > *last_) {
    counts_.lost += counter - *last_ - 1;
  }
  // A smaller number is that of a camera that began anew.
  last_ = counter;
}

}  // namespace kolvex_host
