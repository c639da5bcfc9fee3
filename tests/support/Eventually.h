#pragma once

#include <chrono>
#include <thread>

namespace kolvex_test {

/// Of waits: longer than anything takes that goes well, on the busiest machine.
inline constexpr std::chrono::milliseconds kWaitLimit{60'000};

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

/// The same within kWaitLimit.
template <typename Predicate>
bool Eventually(Predicate holds) {
  return Await(kWaitLimit, holds);
}

}  // namespace kolvex_test
