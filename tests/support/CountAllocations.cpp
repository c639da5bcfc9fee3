#include "support/CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
thread_local std::size_t left = kolvex_test::kNoLimit;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  if (left != kolvex_test::kNoLimit && left-- == 0) {
    left = 0;
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

void FailAllocationsBehind(std::size_t count) { left = count; }

}  // namespace kolvex_test
