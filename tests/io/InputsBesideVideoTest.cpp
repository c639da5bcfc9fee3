#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "kolvex/ICaptureIOApi.h"
#include "platform/Clock.h"
#include "support/FakeHost.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using sarnevo::u32;
using sarnevo::u64;

// A camera of either group with one input, which streams and is asked for its input at the driver's own pace.
TEST(CaptureIO, ReportsAnInputWithinOnePollWhileVideoOfTheCameraRuns) {
  constexpr u64 kPollMs = 2000;
  constexpr u64 kSlackMs = 1000;  // for a busy machine; a poll that was left out would take one more interval
  for (const int group : {1, 2}) {
    std::atomic<u32> input{0};
    ScriptedCamera camera(group);
    camera.onHttp = [&](ScriptedCamera::Connection& connection, const std::string& request) {
      const bool asks =
          request.find(group == 1 ? "/gpio.cgi?action=retrieve" : "/GetGPIO.cgi") != std::string::npos;
      const std::string body = (group == 1 ? "gpio1=" : "Input1_Sensor=") + std::to_string(input);
      return asks && connection.Send("HTTP/1.1 200 OK\r\n\r\n" + body);
    };
    HostLog inputs;
    FakeCallback callback{inputs};
    Host host;
    host.params.inputs = 1;
    auto& capture = host.Open(camera, group, sarnevo::CodecMJPEG, SteadyTiming());
    camera.StartSending(JpegFramePacket(group));
    EXPECT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(host.driver->GetCaptureIO()->SetCallback(&callback));
    EXPECT_TRUE(host.driver->GetCaptureIO()->Start());
    EXPECT_TRUE(host.log.WaitFor("OnFrame", 3));
    EXPECT_TRUE(inputs.WaitFor("input 0 is 1"));
    // A busy machine makes a change late, but not each.
    u64 took = kPollMs + kSlackMs + 1;
    for (u32 change = 1; change <= 5 && took > kPollMs + kSlackMs; ++change) {
      const u64 changed = sarnevo::platform::MonotonicMilliseconds();
      const std::string line = "input 0 is " + std::to_string(1 + change % 2);
      inputs.Clear();
      host.log.Clear();
      input = change % 2;
      EXPECT_TRUE(inputs.WaitFor(line));
      took = sarnevo::platform::MonotonicMilliseconds() - changed;
      EXPECT_TRUE(host.log.WaitFor("OnFrame", 10)) << "the video went on";
    }
    EXPECT_LE(took, kPollMs + kSlackMs);
    EXPECT_EQ(camera.log.Count("SETUP"), 1u);
    host.driver.reset();
    camera.StopSending();
  }
}

}  // namespace
}  // namespace kolvex_test
