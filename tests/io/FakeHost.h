#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "kolvex/ICaptureIOCallback.h"
#include "support/Eventually.h"
#include "support/FakeHost.h"

namespace sarnevo {

using kolvex_test::HostLog;

/// What the log says when it is @p expected, or else after a while.
inline std::string Awaited(const HostLog& log, const std::string& expected) {
  kolvex_test::Eventually([&] { return log.Text() == expected; });
  return log.Text();
}

/// A camera that is reached at @p port.
inline kolvex_test::FakeParams Camera(u32 inputs, u32 outputs, u16 port = 80) {
  kolvex_test::FakeParams params;
  params.inputs = inputs;
  params.outputs = outputs;
  params.port = port;
  return params;
}

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

/// The host's side of a camera's digital I/O; @p then as above.
struct IOHost {
  explicit IOHost(kolvex_test::FakeParams params, std::function<void()> then = {})
      : callback(log, std::move(then)) {
    EXPECT_TRUE(driver.Open(nullptr, nullptr, &params));
  }

  HostLog log;
  FakeCallback callback;
  CKolvexIPCaptureDriver driver;
};

}  // namespace sarnevo
