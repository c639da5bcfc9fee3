#pragma once

#include "support/LoadedHost.h"

namespace kolvex_test {

/// Does each thing that a host does over and over, @p thousandths of the long form: 10,000 restarts of streams,
/// 10,000 drivers opened and closed, 1,000 queries and 10,000 operations on stored positions. True when what the
/// process holds after it stays level.
bool Soak(const Library& library, int thousandths);

}  // namespace kolvex_test
