#pragma once

#include "e2e/Board.h"

/// Counts what this process and the libraries in it ask of the allocator and of the system's sockets. The
/// functions are in the program and so win over the system's own.
namespace kolvex_bench {

/// From now on counts go there, as long as they are switched on there.
/// @param counts  outlives the process's last call
void CountInto(CallCounts& counts);

}  // namespace kolvex_bench
