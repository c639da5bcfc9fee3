#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "driver/CapabilityQuery.h"
#include "platform/Event.h"
#include "support/CgiCamera.h"
#include "support/RecordingCapabilities.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using namespace std::chrono_literals;
using sarnevo::platform::WaitResult;

class Observer : public sarnevo::ipcapture::ICapabilityObserver {
 public:
  void OnQueryDone() override { done.Set(); }
  void OnQueryFailed(std::uint32_t level, const char* text) override { ADD_FAILURE() << level << " " << text; }
  sarnevo::platform::Event done;
};

// Queries that end well and queries that have to be ended, while another camera streams: it loses no frame, and
// its channel sees no reason to begin anew.
TEST(CapabilityQuery, DisturbsNoStreamOfAnotherCamera) {
  constexpr int kFrames = 400;
  ScriptedCamera streaming(1, "127.0.0.2");
  Host host;
  auto& capture = host.Open(streaming, 1, sarnevo::CodecMJPEG, SteadyTiming());
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(streaming.log.WaitFor("PLAY"));
  const Payload frame = JpegFramePacket(1);
  std::uint16_t sequence = 0;
  do {  // until the channel takes packets
    streaming.Send(++sequence, true, frame);
  } while (!host.log.WaitFor("OnFrame", 1, 100ms) && sequence < 100);
  std::atomic<bool> ended{false};
  std::thread sender([&] {
    for (int i = 0; i < kFrames; ++i) {
      streaming.Send(++sequence, true, frame);
      std::this_thread::sleep_for(3ms);
    }
    ended = true;
  });

  const CgiCamera sound(Group2Replies("81"));
  ScriptedServer dripping([](ScriptedServer::Connection& connection) {
    if (connection.ReadHead().find("/GetTime.cgi ") != std::string::npos) {
      connection.Send(Reply(200, ""));
    } else {
      connection.Drip("HTTP/1.1 200 OK\r\nX: " + std::string(10'000, 'd'), 2ms);
    }
  });
  int queries = 0;
  for (; !ended; ++queries) {
    Observer observer;
    RecordingCapabilities capabilities;
    sarnevo::CapabilityQuery query({.stopWait = 20ms, .stopMoment = 300ms});
    ASSERT_TRUE(query.Init(&observer, false));
    const bool drips = queries % 4 == 3;
    EXPECT_TRUE(query.Start("127.0.0.1", drips ? dripping.Port() : sound.Port(), "u", "p", &capabilities));
    EXPECT_TRUE(drips || observer.done.Wait(20s) == WaitResult::Signalled);
    query.Uninit();
  }
  sender.join();
  EXPECT_GE(queries, 4);
  EXPECT_TRUE(host.log.WaitFor("OnFrame", 1 + kFrames)) << host.log.Count("OnFrame") << " frames";
  EXPECT_EQ(streaming.log.Count("SETUP"), 1u) << streaming.log.Text();
}

}  // namespace
}  // namespace kolvex_test
