#include "support/CountAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<std::size_t> allocations{0};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return kolvex_test::memoryFails ? nullptr : std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

std::size_t kolvex_test::Allocations() { return allocations; }
