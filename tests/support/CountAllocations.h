#pragma once

#include <cstddef>

namespace kolvex_test {

/// Calls of operator new in this program so far, by all threads. Programs that link CountAllocations.cpp have
/// an operator new that counts.
std::size_t Allocations();

}  // namespace kolvex_test
