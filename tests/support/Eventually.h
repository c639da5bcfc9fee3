#pragma once

#include <chrono>
#include <thread>

namespace kolvex_test {

/// Waits until @p holds gives true. False when @p limit runs out before.
template <typename Predicate>
bool Await(std::chrono::milliseconds limit, Predicate holds) {
  for (const auto end = std::chrono::steady_clock::now() + limit; !holds();) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// The same with a limit that is longer than anything takes that goes well, on the busiest machine.
template <typename Predicate>
bool Eventually(Predicate holds) {
  return Await(std::chrono::seconds(60), holds);
}

}  // namespace kolvex_test
