#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "io/CIOBase.h"
#include "io/FakeHost.h"
#include "support/Eventually.h"

namespace sarnevo {

/// Digital I/O with a camera that is a handful of fields. Polls are often, and only their effects are
/// written down.
class FakeIO : public CIOBase {
 public:
  FakeIO(CKolvexIPCaptureDriver* driver, HostLog& log, u32 stopTimeoutMs = kStopTimeoutMs)
      : CIOBase(driver, 2, stopTimeoutMs), log_(log) {}
  ~FakeIO() override { EndThreads(); }

  using CIOBase::SetInterrupts;

  /// Waits until a poll has begun and ended after this call.
  void AwaitPoll() {
    const u32 seen = polls;
    EXPECT_TRUE(kolvex_test::Eventually([&] { return polls >= seen + 2; }));
  }

  std::atomic<u32> polls{0};
  std::atomic<u32> highInputs{0};  // a bit for each of the first 32 inputs
  std::atomic<bool> readsFail{false};
  std::atomic<bool> writesFail{false};
  std::function<void()> duringWrite;  // set before Start

 protected:
  bool WriteOutput(u32 index, u32 state) override {
    if (duringWrite) {
      duringWrite();
    }
    if (writesFail) {
      return false;
    }
    log_.Add("output " + std::to_string(index) + " to " + std::to_string(state));
    return true;
  }

  bool ReadInputs(u32 count) override {
    const bool good = !readsFail;
    for (u32 index = 0; good && index < count; ++index) {
      UpdateInput(index, (highInputs >> index % 32 & 1) != 0 ? IOStateHigh : IOStateLow);
    }
    ++polls;
    return good;
  }

 private:
  HostLog& log_;
};

}  // namespace sarnevo
