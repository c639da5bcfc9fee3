#include "e2e/Board.h"

#include <sys/mman.h>

#include <new>

namespace kolvex_bench {

Board& SharedBoard() {
  void* const memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return *new (memory) Board;
}

std::pair<double, double> Lateness::TakeP99AndMost() {
  std::uint64_t all = 0;
  for (const auto& count : packets) {
    all += count;
  }
  std::pair<double, double> result;
  std::uint64_t seen = 0;
  for (std::size_t us = 0; us <= kMostUs; ++us) {
    const std::uint32_t here = packets[us].exchange(0);
    if (here > 0) {
      result.second = static_cast<double>(us);
      result.first = seen * 100 < all * 99 ? result.second : result.first;
      seen += here;
    }
  }
  return result;
}

}  // namespace kolvex_bench
