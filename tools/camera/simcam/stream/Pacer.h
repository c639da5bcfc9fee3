#pragma once

#include <algorithm>
#include <vector>

#include "simcam/base/EventLoop.h"

namespace simcam {

/// Has packets that become due one after the other.
class PacedSender {
 public:
  virtual ~PacedSender() = default;
  /// Sends what is due; false when nothing is left to send.
  virtual bool SendDue(Clock::time_point now) = 0;
};

/// Wakes all senders that have something queued, with one timer for all of them. Loop thread only.
class Pacer {
 public:
  explicit Pacer(EventLoop& loop) : timer_(loop, [this] { Tick(); }) {}

  void Add(PacedSender* sender) {
    if (std::find(senders_.begin(), senders_.end(), sender) == senders_.end()) {
      senders_.push_back(sender);
    }
    if (!timer_.running()) {
      timer_.StartOnce(kTick);
    }
  }
  void Remove(PacedSender* sender) { std::erase(senders_, sender); }

 private:
  static constexpr Microseconds kTick{1500};

  void Tick() {
    const Clock::time_point now = Clock::now();
    std::erase_if(senders_, [now](PacedSender* sender) { return !sender->SendDue(now); });
    if (!senders_.empty()) {
      timer_.StartOnce(kTick);
    }
  }

  std::vector<PacedSender*> senders_;  // not owned
  Timer timer_;
};

}  // namespace simcam
