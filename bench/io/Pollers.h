#pragma once

#include <memory>

#include "io/Plan.h"

namespace kolvex_bench {

/// Polls cameras until it is destroyed, at the library's pace. Each camera's first poll is made by Add.
class Poller {
 public:
  virtual ~Poller() = default;
  virtual void Add(int camera) = 0;
};

/// A thread per camera with nothing but system calls: connect unless connected, send, receive, close unless
/// the camera keeps the connection.
std::unique_ptr<Poller> MakeBarePoller(const PollPlan& plan);
/// The shared library, as a host uses it for the inputs of its cameras.
std::unique_ptr<Poller> MakeLibraryPoller(const PollPlan& plan);

}  // namespace kolvex_bench
