#pragma once

#include <functional>

#include "e2e/Counters.h"
#include "e2e/Plan.h"

namespace kolvex_bench {

/// What one receiver took for one window.
struct Measurement {
  bool valid = false;  ///< false: the streams never came up
  double seconds = 0;
  double cpuNanoseconds = 0;  ///< processor time of the receiving process alone, user and system
  double packets = 0;         ///< sent to it
  double framesSent = 0;
  double framesComplete = 0;  ///< at the end of its road
  double switches = 0;        ///< voluntary context switches: waits
  double residentKb = 0;      ///< of the process, at the end
  Calls calls;                ///< when counting
};

/// Measures a receiver that is already at work.
/// @param complete  frames that have come complete, all streams together
/// @param isUp      whether every stream delivers; waited for before the window
Measurement Measure(const Plan& plan, const SentCounts& sent, bool counting,
                    const std::function<std::uint64_t()>& complete, const std::function<bool()>& isUp);

}  // namespace kolvex_bench
