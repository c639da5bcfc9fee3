#pragma once

#include <cstddef>

namespace kolvex_test {

/// Calls of operator new in this program so far, by all threads. Programs that link CountAllocations.cpp have
/// an operator new that counts.
std::size_t Allocations();

/// Of the calling thread's next calls of operator new, lets @p count through; the one behind them finds no
/// memory, and those after it do.
void FailAllocationBehind(std::size_t count);
/// Takes that back. True when it hadn't come to the failure yet.
bool CancelFailure();

}  // namespace kolvex_test
