#pragma once

#include <functional>
#include <string>

#include "kolvex/ICaptureIOCallback.h"
#include "support/HostLog.h"

namespace sarnevo {

using kolvex_test::HostLog;

/// The host's callback object; @p then runs after each line, on the thread of the callback.
class FakeCallback : public ICaptureIOCallback {
 public:
  explicit FakeCallback(HostLog& log, std::function<void()> then = {}) : log_(log), then_(std::move(then)) {}

  void OnInputChanged(u32 index, u32 state) override {
    Say("input " + std::to_string(index) + " is " + std::to_string(state));
  }
  void OnIOFailure() override { Say("failure"); }

 private:
  void Say(const std::string& line) {
    log_.Add(line);
    if (then_) {
      then_();
    }
  }

  HostLog& log_;
  const std::function<void()> then_;
};

}  // namespace sarnevo
