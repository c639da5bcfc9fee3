#include "support/CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::atomic<std::size_t> allocations{0};
// Calls of this thread up to and including the one that fails; 0: none fails.
thread_local std::size_t callsToFailure = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  if (callsToFailure > 0 && --callsToFailure == 0) {
    return nullptr;
  }
  return std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace kolvex_test {

std::size_t Allocations() { return allocations; }

void FailAllocationBehind(std::size_t count) { callsToFailure = count + 1; }

bool CancelFailure() { return std::exchange(callsToFailure, 0) != 0; }

}  // namespace kolvex_test
