// What cameras and hosts do wrong, and what must come of it: frames again where the camera recovers, a bounded
// stop everywhere, and nothing that touches the others in the process.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <vector>

#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using Connection = ScriptedCamera::Connection;

// A camera and a host of its own beside others, each at its own address.
struct Scene {
  Scene(int group, std::size_t number, bool speaksRtsp = true)
      : camera(group, "127.0.1." + std::to_string(number + 1), speaksRtsp) {}
  ScriptedCamera camera;
  Host host;
  std::future<milliseconds> stopping;
};
using Scenes = std::vector<std::unique_ptr<Scene>>;

TEST(Fault, StopIsBoundedInEveryState) {
  struct State {
    std::string method;
    bool drips;
  };
  std::vector<State> states{{"connect", false}};
  for (const char* method : {"GET", "DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN"}) {
    states.push_back({method, false});
    states.push_back({method, true});
  }
  const Blackhole blackhole("127.0.1.1", 554);
  Scenes scenes;
  for (const auto& [method, drips] : states) {
    auto& [camera, host, stopping] =
        *scenes.emplace_back(std::make_unique<Scene>(1, scenes.size(), method != "connect"));
    camera.onHttp =
        camera.onRtsp = [method = method, drips = drips](Connection& c, const std::string& request) {
          if (!request.starts_with(method)) {
            return false;
          }
          drips ? static_cast<void>(c.Drip(std::string(100'000, 'x'), milliseconds(20))) : c.WaitForEnd();
          return true;
        };
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG, QuickTiming(), "600000");
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  }
  for (std::size_t i = 0; i < states.size(); ++i) {
    const std::string& method = states[i].method;
    const bool isFarewell = method == "PAUSE" || method == "TEARDOWN";
    ASSERT_TRUE(scenes[i]->camera.log.WaitFor(isFarewell ? "PLAY" : method == "connect" ? "GET" : method));
  }
  std::this_thread::sleep_for(milliseconds(200));  // into the middle of what is dripping
  for (const auto& scene : scenes) {
    scene->stopping = std::async(std::launch::async, [&scene] {
      const auto begin = Clock::now();
      EXPECT_TRUE(scene->host.driver->GetVideoCapture()->StopCapture(0));
      return Since(begin);
    });
  }
  for (std::size_t i = 0; i < states.size(); ++i) {
    // Twice the receive time-out, what one receive of the farewell takes for each of its two requests, and as
    // much again for a busy machine.
    EXPECT_LT(scenes[i]->stopping.get(), milliseconds(2 * (2 * 600 + 2 * 2000))) << states[i].method;
  }
}

TEST(Fault, WildArgumentsAreRefusedWithoutATrace) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG, SteadyTiming());
  for (const std::uint32_t channel : {16U, 17U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    std::uint32_t status = 7;
    std::uint32_t extra = 7;
    char text[] = "ab";
    EXPECT_FALSE(capture.StartCapture(channel, &host.sink, &host.wanted));
    EXPECT_FALSE(capture.StopCapture(channel));
    EXPECT_FALSE(capture.ChangeFormat(channel, &host.wanted, 40));
    EXPECT_FALSE(capture.GetChannelStatus(channel, &status, &extra, text, 0));
    EXPECT_EQ(status, 7U);
    EXPECT_EQ(extra, 0U);
    EXPECT_EQ(text[0], 'a');  // no room was given
  }
  FakeVideoParams incomplete[3];
  incomplete[0].hasFormat = incomplete[1].hasResolution = incomplete[2].hasRate = false;
  for (FakeVideoParams* params :
       {&incomplete[0], &incomplete[1], &incomplete[2], static_cast<FakeVideoParams*>(nullptr)}) {
    EXPECT_FALSE(capture.StartCapture(0, &host.sink, params));
    EXPECT_FALSE(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 9));
  }

  ASSERT_TRUE(capture.StartCapture(15, nullptr, &host.wanted));  // a channel without a sink runs
  camera.StartSending(JpegFramePacket(1));
  EXPECT_TRUE(host.log.WaitFor("ReleaseFrame", 3));
  EXPECT_FALSE(capture.ChangeFormat(15, nullptr, 40));
  EXPECT_TRUE(host.log.WaitFor("ReleaseFrame", host.log.Count("ReleaseFrame") + 3));
  EXPECT_TRUE(capture.StopCapture(15));
  EXPECT_EQ(host.log.Count("On"), 0U);
  EXPECT_EQ(camera.log.Count("PLAY"), 1U);
}

}  // namespace
}  // namespace kolvex_test
