#pragma once

#include <cstddef>

namespace kolvex_test {

/// Calls of operator new in this program so far, by all threads. Programs that link CountAllocations.cpp have
/// an operator new that counts.
std::size_t Allocations();

/// While set, operator new has nothing for the calling thread.
inline constinit thread_local bool memoryFails = false;

}  // namespace kolvex_test
