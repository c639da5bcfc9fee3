#pragma once

#include "support/LoadedHost.h"

namespace kolvex_test {

/// Runs the scenario in a process of its own for each request that the library makes for each resource, which
/// fails: alone and, unless @p step is beyond 50, with all that follow until the host is told. Of the requests for
/// memory each @p step th.
/// With @p cold the library meets them with nothing set up in the process, otherwise behind a whole run, and then
/// nothing of a run may stay. True when all went well.
bool Sweep(const Library& library, int step, bool cold);

}  // namespace kolvex_test
