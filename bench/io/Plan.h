#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace kolvex_bench {

/// What is polled. The same for both pollers.
struct PollPlan {
  int cameras = 400;
  int windows = 10;
  double windowSeconds = 2;  ///< one poll of each camera, about
  double warmUpSeconds = 3;  ///< after the last camera's start
  bool keepAlive = false;    ///< the cameras agree to keep connections
  int outputs = 0;           ///< of each camera; the library has a thread for them, which wakes once a second
  std::uint16_t port = 0;    ///< of the cameras that this poller polls
  std::string library;       ///< file of the shared library
};

constexpr int kPollIntervalMs = 2000;  // the library's own

/// Of camera @p index, counted from 0.
inline std::string PolledAddress(int index) {
  return "127.2." + std::to_string(index / 250) + "." + std::to_string(index % 250 + 1);
}

/// The same for both pollers, apart from what each client says of itself.
constexpr const char* kPollTarget = "/gpio.cgi?action=retrieve";

/// What the cameras have seen, in memory that they share with the measuring process.
struct Served {
  std::atomic<std::uint64_t> requests{0};
  std::atomic<std::uint64_t> connections{0};
};

}  // namespace kolvex_bench
