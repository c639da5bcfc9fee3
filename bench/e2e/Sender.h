#pragma once

#include "e2e/Plan.h"

namespace kolvex_bench {

/// All cameras of a plan in one process: a thread that answers requests, and this one, which sends each frame in
/// one batch, the streams evenly spread over the frame interval. Runs until the process is ended.
/// @param ready  called once the cameras can be connected to
[[noreturn]] void RunSender(const Plan& plan, SentCounts& sent, void (*ready)());

}  // namespace kolvex_bench
