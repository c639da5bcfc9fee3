#pragma once

#include "e2e/Board.h"

namespace kolvex_bench {

/// Starts the least that a receiver of this design can do: one thread per stream, poll, recvfrom, one copy into
/// the frame, which ends at the marker; without the poll while the board says so. For a process that does nothing
/// else; it works until the process ends.
void RunBaseline(const Plan& plan, Board& board, int place);

/// Loads the shared library and drives it as a host does, up to OnFrame. Likewise.
void RunLibrary(const Plan& plan, Board& board, int place);

}  // namespace kolvex_bench
