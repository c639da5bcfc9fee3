// Hosts that call back: from inside every callback, everything that a host can call.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Event.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using sarnevo::platform::Event;
using sarnevo::platform::WaitResult;

constexpr std::chrono::seconds kLimit{20};

// One of the host's callbacks, and a way to do something once inside it.
struct Place {
  const char* name;
  std::function<void(Host&, std::function<void()>)> hook;
};

std::function<void()> Once(std::function<void()> action) {
  return [action = std::move(action), done = std::make_shared<std::atomic<bool>>(false)] {
    if (!done->exchange(true)) {
      action();
    }
  };
}

const Place kOnFrame{"OnFrame", [](Host& host, std::function<void()> action) {
                       host.sink.onFrame = [once = Once(std::move(action))] {
                         once();
                         return true;
                       };
                     }};
const Place kOnNoData{
    "OnNoData", [](Host& host, std::function<void()> action) { host.sink.onNoData = Once(std::move(action)); }};
const Place kAllocate{"AllocateFrame", [](Host& host, std::function<void()> action) {
                        host.allocator.onAllocate = Once(std::move(action));
                      }};
const Place kRelease{"ReleaseFrame", [](Host& host, std::function<void()> action) {
                       host.allocator.onRelease = Once(std::move(action));
                     }};

// What a callback uses that ends its driver stays until the process ends: the library no longer waits for
// that thread, so that nothing tells when it has left the host's code.
template <typename Object>
Object& Keep(std::unique_ptr<Object> object) {
  static std::vector<std::unique_ptr<Object>> kept;
  return *kept.emplace_back(std::move(object));
}

struct Operation {
  const char* name;
  std::function<bool(Host&)> run;
  bool result;
  bool ends;  // the channel doesn't run behind it
};

contract::IIPVideoCapture& Video(Host& host) { return *host.driver->GetVideoCapture(); }

TEST(Callback, MayCallEverythingOnItsOwnChannelAndDriver) {
  const Operation operations[] = {
      {"StopCapture", [](Host& host) { return Video(host).StopCapture(0); }, true, true},
      {"StopCapture twice",
       [](Host& host) { return Video(host).StopCapture(0) && !Video(host).StopCapture(0); }, true, true},
      {"stop and start",
       [](Host& host) {
         return Video(host).StopCapture(0) && Video(host).StartCapture(0, &host.sink, &host.wanted);
       },
       true, false},
      {"ChangeFormat", [](Host& host) { return Video(host).ChangeFormat(0, &host.wanted, 66); }, true, false},
      {"ChangeFormat and stop",
       [](Host& host) { return Video(host).ChangeFormat(0, &host.wanted, 66) && Video(host).StopCapture(0); },
       true, true},
      {"Close",
       [](Host& host) {
         host.driver->Close();
         return host.driver->GetVideoCapture() == nullptr;
       },
       true, true},
      {"delete",
       [](Host& host) {
         host.driver.reset();
         return true;
       },
       true, true},
      {"status", [](Host& host) { return Video(host).GetChannelStatus(0, nullptr, nullptr, nullptr, 0); }, true,
       false},
      {"start another", [](Host& host) { return Video(host).StartCapture(1, &host.sink, &host.wanted); }, true,
       false},
  };
  for (const Place* place : {&kOnFrame, &kOnNoData, &kAllocate, &kRelease}) {
    for (const Operation& operation : operations) {
      SCOPED_TRACE(std::string(operation.name) + " in " + place->name);
      ScriptedCamera camera(1);
      Host& host = Keep(std::make_unique<Host>());
      auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
      Event& done = Keep(std::make_unique<Event>());
      std::atomic<bool>& result = Keep(std::make_unique<std::atomic<bool>>(!operation.result));
      place->hook(host, [&host, &done, &result, run = operation.run] {
        result = run(host);
        done.Set();
      });
      camera.StartSending(JpegFramePacket(1));
      ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
      ASSERT_EQ(done.Wait(kLimit), WaitResult::Signalled);
      EXPECT_EQ(result, operation.result);
      if (!operation.ends) {
        EXPECT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 3));
      } else if (place != &kOnNoData && host.driver != nullptr && host.driver->GetVideoCapture() != nullptr) {
        EXPECT_TRUE(host.log.WaitFor("ReleaseFrame"));  // behind the end of the channel
        EXPECT_EQ(host.allocator.Outstanding(), 0U);
      }
      if (host.driver != nullptr) {
        host.driver->Close();
      }
      EXPECT_EQ(host.log.Count("ReleaseFrame of"), 0U);
    }
  }
}

TEST(Callback, StartCaptureInOnNoDataStartsTheConfigurationAnewWithOneWorker) {
  ScriptedCamera camera(2);
  Host host;
  auto& capture = host.Open(camera, 2, sarnevo::CodecMJPEG);
  camera.onHttp = [&](ScriptedCamera::Connection&, const std::string&) { return true; };  // never configured
  FakeVideoParams other(640, 480, 100, 100);
  Event done;
  host.sink.onNoData = Once([&] {
    EXPECT_TRUE(capture.StartCapture(0, &host.sink, &other));
    done.Set();
  });
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_EQ(done.Wait(kLimit), WaitResult::Signalled);
  ASSERT_TRUE(camera.log.WaitFor("GET /SetMultimedia.cgi?CH=0&Resolution=vga&Fps=10", 3));
  EXPECT_LE(camera.log.Count("GET /SetMultimedia.cgi?CH=0&Resolution=cif"), 1U);
  EXPECT_TRUE(capture.StopCapture(0));
}

// The callback stops its own channel and stays in the host for long. The driver may be closed meanwhile and
// the host's objects go: the thread must look at none of them when it comes back.
TEST(Callback, ThatOutlivesItsDriverTouchesNothing) {
  ScriptedCamera camera(1);
  Event stopped;
  Event goOn;
  std::atomic<bool> back{false};
  auto host = std::make_unique<Host>();
  auto& capture = host->Open(camera, 1, sarnevo::CodecMJPEG);
  struct PatientSink : contract::IFrameSink {
    std::function<void()> onFrame;
    bool OnFrame(contract::IFrame*) override {
      onFrame();
      return true;
    }
    void OnNoData() override {}
  } patient;
  patient.onFrame = [&] {
    EXPECT_TRUE(capture.StopCapture(0));
    stopped.Set();
    goOn.Wait();
    back = true;
  };
  camera.StartSending(JpegFramePacket(1));
  ASSERT_TRUE(capture.StartCapture(0, &patient, &host->wanted));
  ASSERT_EQ(stopped.Wait(kLimit), WaitResult::Signalled);
  EXPECT_EQ(host->allocator.Outstanding(), 1U);
  host->driver.reset();
  host.reset();  // allocator and frame too
  goOn.Set();
  while (!back) {
    std::this_thread::yield();
  }
}

TEST(Callback, MayStopAnotherChannelOfTheSameOrAnotherDriver) {
  ScriptedCamera camera(1);
  ScriptedCamera otherCamera(1, "127.0.0.2");
  Host host;
  Host other("B");
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  auto& otherCapture = other.Open(otherCamera, 1, sarnevo::CodecMJPEG);
  camera.StartSending(JpegFramePacket(1));
  otherCamera.StartSending(JpegFramePacket(1));
  Event done;
  kOnFrame.hook(host, [&] {
    EXPECT_TRUE(otherCapture.StopCapture(0));
    other.driver->Close();
    done.Set();
  });
  ASSERT_TRUE(otherCapture.StartCapture(0, &other.sink, &other.wanted));
  ASSERT_TRUE(other.log.WaitFor("OnFrameB"));
  ASSERT_TRUE(capture.StartCapture(5, &host.sink, &host.wanted));
  ASSERT_EQ(done.Wait(kLimit), WaitResult::Signalled);
  EXPECT_EQ(other.allocator.Outstanding(), 0U);
  EXPECT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 3));  // itself it goes on
}

// Each of two channels ends the other in its OnFrame at the same moment. One of them has to give way.
TEST(Callback, TwoThatEndEachOtherNeverWaitForEachOther) {
  const struct {
    const char* name;
    bool sameDriver;
    bool close;
  } rows[] = {{"stop, same driver", true, false}, {"stop, two drivers", false, false}, {"close", false, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedCamera camera(1);
    ScriptedCamera otherCamera(1, "127.0.0.2");
    struct Meeting {
      Host host;
      Host other;
      std::atomic<int> inside{0};
      std::atomic<int> ended{0};
      Event done;
      Event otherDone;
    };
    Meeting& both = Keep(std::make_unique<Meeting>());
    auto& capture = both.host.Open(camera, 1, sarnevo::CodecMJPEG);
    auto& otherCapture = row.sameDriver ? capture : both.other.Open(otherCamera, 1, sarnevo::CodecMJPEG);
    const auto meetAndEnd = [&both, close = row.close](auto& victimHost, auto& victim, std::uint32_t channel,
                                                       Event& done) {
      return [&, close, channel] {
        for (++both.inside; both.inside < 2;) {
          std::this_thread::yield();
        }
        if (close) {
          victimHost.driver->Close();
        } else {
          both.ended += victim.StopCapture(channel) ? 1 : 0;
        }
        done.Set();
      };
    };
    kOnFrame.hook(both.host, meetAndEnd(both.other, otherCapture, 1, both.done));
    kOnFrame.hook(both.other, meetAndEnd(both.host, capture, 0, both.otherDone));
    camera.StartSending(JpegFramePacket(1));
    otherCamera.StartSending(JpegFramePacket(1));
    ASSERT_TRUE(capture.StartCapture(0, &both.host.sink, &both.host.wanted));
    while (both.inside == 0) {
      std::this_thread::yield();  // the camera sends to its latest client only
    }
    ASSERT_TRUE(otherCapture.StartCapture(1, &both.other.sink, &both.other.wanted));
    EXPECT_EQ(both.done.Wait(kLimit), WaitResult::Signalled);
    EXPECT_EQ(both.otherDone.Wait(kLimit), WaitResult::Signalled);
    EXPECT_EQ(both.ended > 0, !row.close);
    both.host.driver->Close();
    both.other.driver->Close();
  }
}

// A host's thread waits in StopCapture for a callback, and that callback calls in.
TEST(Callback, CallsThatMeetAStopGiveWay) {
  const std::pair<const char*, std::function<bool(Host&)>> operations[] = {
      {"StopCapture", [](Host& host) { return Video(host).StopCapture(0); }},
      {"StartCapture", [](Host& host) { return Video(host).StartCapture(0, &host.sink, &host.wanted); }},
      {"start another", [](Host& host) { return Video(host).StartCapture(1, &host.sink, &host.wanted); }},
      {"ChangeFormat", [](Host& host) { return Video(host).ChangeFormat(0, &host.wanted, 40); }},
      {"status", [](Host& host) { return Video(host).GetChannelStatus(0, nullptr, nullptr, nullptr, 0); }},
  };
  for (const Place* place : {&kOnFrame, &kOnNoData}) {
    for (const auto& [name, operation] : operations) {
      SCOPED_TRACE(std::string(name) + " in " + place->name);
      ScriptedCamera camera(1);
      Host host;
      auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
      Event inside;
      std::atomic<bool> result{true};
      place->hook(host, [&, run = operation] {
        inside.Set();
        // A channel that runs has no status only while it is being stopped.
        while (Video(host).GetChannelStatus(0, nullptr, nullptr, nullptr, 0)) {
          std::this_thread::yield();
        }
        result = run(host);
      });
      camera.StartSending(JpegFramePacket(1));
      ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
      ASSERT_EQ(inside.Wait(kLimit), WaitResult::Signalled);
      auto stopping = std::async(std::launch::async, [&] { return capture.StopCapture(0); });
      ASSERT_EQ(stopping.wait_for(kLimit), std::future_status::ready);
      EXPECT_TRUE(stopping.get());
      EXPECT_FALSE(result);
      EXPECT_EQ(host.allocator.Outstanding(), 0U);
    }
  }
}

TEST(Callback, OnFrameIsWaitedForHoweverLongItTakes) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  Event inside;
  std::atomic<bool> left{false};
  kOnFrame.hook(host, [&] {
    inside.Set();
    std::this_thread::sleep_for(milliseconds(1500));  // beyond all time-outs of the quick rhythm
    left = true;
  });
  camera.StartSending(JpegFramePacket(1));
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_EQ(inside.Wait(kLimit), WaitResult::Signalled);
  EXPECT_TRUE(capture.StopCapture(0));
  EXPECT_TRUE(left);
  EXPECT_EQ(host.allocator.Outstanding(), 0U);
}

TEST(Callback, OnNoDataThatHangsIsLeftBehind) {
  ScriptedCamera camera(1);
  auto host = std::make_unique<Host>();
  auto& capture = host->Open(camera, 1, sarnevo::CodecMJPEG);
  Event inside;
  Event goOn;
  std::atomic<bool> left{false};
  struct HangingSink : contract::IFrameSink {
    std::function<void()> onNoData;
    bool OnFrame(contract::IFrame*) override { return true; }
    void OnNoData() override { onNoData(); }
  } sink;
  sink.onNoData = [&] {
    inside.Set();
    goOn.Wait();
    left = true;
  };
  ASSERT_TRUE(capture.StartCapture(0, &sink, &host->wanted));
  ASSERT_EQ(inside.Wait(kLimit), WaitResult::Signalled);
  const auto begin = Clock::now();
  EXPECT_TRUE(capture.StopCapture(0));
  EXPECT_GE(Since(begin), milliseconds(2 * 300));
  EXPECT_LT(Since(begin), milliseconds(10'000));
  host.reset();
  EXPECT_FALSE(left);
  goOn.Set();
  while (!left) {
    std::this_thread::yield();
  }
}

// The driver lives on, and the host has no way to know that its callback was left: it calls in as ever.
TEST(Callback, LeftBehindByAStopMayGoOnToUseTheDriver) {
  const std::pair<const char*, std::function<bool(Host&)>> operations[] = {
      {"status", [](Host& host) { return !Video(host).GetChannelStatus(0, nullptr, nullptr, nullptr, 0); }},
      {"start another", [](Host& host) { return Video(host).StartCapture(1, nullptr, &host.wanted); }},
      {"stop another", [](Host& host) { return Video(host).StopCapture(2); }},
      {"Close",
       [](Host& host) {
         host.driver->Close();
         return true;
       }},
  };
  for (const auto& [name, operation] : operations) {
    SCOPED_TRACE(name);
    ScriptedCamera camera(1);
    struct Scene {
      Host host;
      Event inside;
      Event goOn;
      Event done;
      std::atomic<bool> result{false};
    };
    Scene& scene = Keep(std::make_unique<Scene>());
    auto& capture = scene.host.Open(camera, 1, sarnevo::CodecMJPEG);
    kOnNoData.hook(scene.host, [&scene, run = operation] {
      scene.inside.Set();
      scene.goOn.Wait();
      scene.result = run(scene.host);
      scene.done.Set();
    });
    ASSERT_TRUE(capture.StartCapture(0, &scene.host.sink, &scene.host.wanted));
    ASSERT_TRUE(capture.StartCapture(2, nullptr, &scene.host.wanted));
    ASSERT_EQ(scene.inside.Wait(kLimit), WaitResult::Signalled);
    ASSERT_TRUE(capture.StopCapture(0));
    scene.goOn.Set();
    ASSERT_EQ(scene.done.Wait(kLimit), WaitResult::Signalled);
    EXPECT_TRUE(scene.result);
    scene.host.driver->Close();
  }
}

TEST(Callback, InStartCapturesOwnQuestionsIsHarmless) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  host.wanted.onAsked = Once([&] { EXPECT_TRUE(capture.StopCapture(0)); });
  EXPECT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  EXPECT_TRUE(capture.StopCapture(0));
}

}  // namespace
}  // namespace kolvex_test
