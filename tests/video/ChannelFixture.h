#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "support/FakeHost.h"
#include "support/ScriptedCamera.h"

namespace kolvex_test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A rhythm in which a test can wait for all that takes seconds in earnest.
inline sarnevo::ChannelTiming QuickTiming() {
  sarnevo::ChannelTiming timing;
  timing.streamPass = milliseconds(20);
  timing.pause = milliseconds(30);
  timing.receiveTimeout = milliseconds(300);
  timing.startingReceiveTimeout = milliseconds(600);
  timing.packetTimeout = milliseconds(200);
  timing.farewell = milliseconds(300);
  return timing;
}

/// The same for streams that are never to be taken for silent, however busy the machine is.
inline sarnevo::ChannelTiming SteadyTiming() {
  sarnevo::ChannelTiming timing = QuickTiming();
  timing.packetTimeout = milliseconds(30'000);
  return timing;
}

/// One driver with all that a host has for it.
struct Host {
  ~Host() { driver.reset(); }

  /// Opens the driver for a camera.
  contract::IIPVideoCapture& Open(const ScriptedCamera& camera, int group, std::uint32_t codec,
                                  sarnevo::ChannelTiming timing = QuickTiming(),
                                  const std::string& networkTimeout = "10000") {
    params.address = camera.Address();
    params.port = camera.HttpPort();
    params.codec = codec;
    params.settings = CameraSettings(std::to_string(group), networkTimeout);
    driver->SetChannelTiming(timing);
    EXPECT_TRUE(driver->Open(&debugSink, &allocator, &params));
    log.Clear();
    return *driver->GetVideoCapture();
  }

  HostLog log;
  FakeParams params;
  FakeVideoParams wanted;
  FakeDebugSink debugSink{log};
  FakeAllocator allocator{log};
  FakeSink sink{log};
  std::unique_ptr<sarnevo::CKolvexIPCaptureDriver> driver = std::make_unique<sarnevo::CKolvexIPCaptureDriver>();
};

inline milliseconds Since(Clock::time_point begin) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

}  // namespace kolvex_test
