#pragma once

#include <chrono>
#include <thread>

namespace kolvex_test {

/// Waits until @p holds gives true. False when it still doesn't after ten seconds.
template <typename Predicate>
bool Eventually(Predicate holds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

}  // namespace kolvex_test
