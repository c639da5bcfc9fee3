#pragma once

#include <cstddef>

namespace kolvex_test {

/// Calls of operator new in this program so far, by all threads. Programs that link CountAllocations.cpp have
/// an operator new that counts.
std::size_t Allocations();

inline constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);

/// All allocations of the calling thread fail behind the next @p count ones, until called with kNoLimit.
void FailAllocationsBehind(std::size_t count);

}  // namespace kolvex_test
