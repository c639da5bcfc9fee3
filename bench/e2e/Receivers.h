#pragma once

#include "e2e/Measurement.h"

namespace kolvex_bench {

/// The least that a receiver of this design can do: one thread per stream, poll, recvfrom, one copy into the
/// frame, which ends at the marker.
Measurement RunBaseline(const Plan& plan, const SentCounts& sent, bool counting);

/// The shared library, loaded and driven as a host does, up to OnFrame. Leaves its streams running; the process ends.
Measurement RunLibrary(const Plan& plan, const SentCounts& sent, bool counting);

}  // namespace kolvex_bench
