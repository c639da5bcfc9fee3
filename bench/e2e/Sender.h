#pragma once

#include "e2e/Board.h"
#include "support/Processes.h"

namespace kolvex_bench {

/// All cameras of a plan in one process: a thread that answers the requests of the receiver at @p rtspPlace, and
/// this one, which sends the streams of the active receiver, each frame in one batch, the streams evenly spread
/// over the frame interval. Runs until the process is ended.
/// @param ready  called once the cameras can be connected to
[[noreturn]] void RunSender(const Plan& plan, Board& board, int rtspPlace, void (*ready)());

/// The same in a process of its own, to which connections can be made from now on. Throws std::runtime_error.
void StartSender(Processes& processes, const Plan& plan, Board& board, int rtspPlace);

}  // namespace kolvex_bench
