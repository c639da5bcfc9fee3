#pragma once

#include "io/Pollers.h"

namespace kolvex_bench {

constexpr int kMaxWindows = 64;

/// What the process of a poller took.
struct PollCost {
  bool valid = false;
  struct Window {
    double cpuMicroseconds = 0;  ///< processor time of the process, user and system
    double polls = 0;            ///< requests that the cameras have answered
    double connections = 0;
    double switches = 0;  ///< voluntary context switches: waits
    double seconds = 0;
  } windows[kMaxWindows];
  double residentKbPerCamera = 0;  ///< that the cameras have added to the process
  double threads = 0;              ///< likewise
  double descriptors = 0;          ///< likewise
};

/// Starts the cameras, spread evenly over a poll interval, and measures window by window. For a process that
/// does nothing else.
PollCost MeasurePolls(const PollPlan& plan, std::unique_ptr<Poller> (*make)(const PollPlan&),
                      const Served& served);

}  // namespace kolvex_bench
