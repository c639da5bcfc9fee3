#pragma once

#include "support/LoadedHost.h"

namespace kolvex_test {

/// Runs the scenario once for each request that the library makes for a resource, each time in a process of its own in
/// which that request fails. Of the requests for memory only each @p step th. With @p step up to 50 it runs a second
/// time for each, in which all later requests fail too, until the host has noticed.
/// With @p cold the process has used nothing of the library before. Otherwise there was a whole run before, and nothing
/// of the second one may stay in the process. True when all went well.
bool Sweep(const Library& library, int step, bool cold);

}  // namespace kolvex_test
