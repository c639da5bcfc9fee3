// Hosts that call back: from inside every callback, everything that a host can call.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Event.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

using sarnevo::platform::Event;

// A host and its callback's steps. It stays until the process ends where a callback ends its driver: the
// library no longer waits for that thread, so that nothing says when it has left the host's code.
struct Scene {
  Host host;
  Event inside;
  Event goOn;
  Event done;
  std::atomic<bool> result{false};
};

Scene& KeptScene() {
  static std::vector<std::unique_ptr<Scene>> kept;
  return *kept.emplace_back(std::make_unique<Scene>());
}

contract::IIPVideoCapture& Open(Host& host, ScriptedCamera& camera) {
  camera.StartSending(JpegFramePacket(1));
  return host.Open(camera, 1, sarnevo::CodecMJPEG, SteadyTiming());
}

enum class Place { OnFrame, OnNoData, OnNoDataInAStream, AllocateFrame, ReleaseFrame };

// Does something once inside one of the host's callbacks.
void Hook(Place place, Host& host, std::function<void()> action, const ScriptedCamera* camera = nullptr) {
  const auto once = [action = std::move(action), done = std::make_shared<std::atomic<bool>>(false)] {
    if (!done->exchange(true)) {
      action();
    }
    return true;
  };
  if (place == Place::OnFrame) {
    host.sink.onFrame = once;
  } else if (place == Place::OnNoDataInAStream) {
    host.sink.onNoData = [once, camera] { return camera->log.Count("PLAY") != 0 && once(); };
  } else {
    (place == Place::OnNoData        ? host.sink.onNoData
     : place == Place::AllocateFrame ? host.allocator.onAllocate
                                     : host.allocator.onRelease) = once;
  }
}

// What a host may call, and whether it was done.
bool Stop(Host& host) { return host.driver->GetVideoCapture()->StopCapture(0); }
bool Start(Host& host) { return host.driver->GetVideoCapture()->StartCapture(0, &host.sink, &host.wanted); }
bool StartAnother(Host& host) {
  return host.driver->GetVideoCapture()->StartCapture(1, &host.sink, &host.wanted);
}
bool Change(Host& host) { return host.driver->GetVideoCapture()->ChangeFormat(0, &host.wanted, 66); }
bool HasStatus(Host& host) {
  return host.driver->GetVideoCapture()->GetChannelStatus(0, nullptr, nullptr, nullptr, 0);
}
bool Close(Host& host) {
  host.driver->Close();
  return host.driver->GetVideoCapture() == nullptr;
}
bool Delete(Host& host) {
  host.driver.reset();
  return true;
}

TEST(Callback, MayCallEverythingOnItsOwnChannelAndDriver) {
  const struct {
    const char* name;
    std::function<bool(Host&)> run;
    std::size_t starts;  // of the stream, at most; 0 when the channel doesn't run after it
  } operations[] = {
      {"stop twice", [](Host& host) { return Stop(host) && !Stop(host); }, 0},
      {"stop and start", [](Host& host) { return Stop(host) && Start(host); }, 2},
      // Done only while nothing streams.
      {"start", [](Host& host) { return Start(host) == (host.log.Count("AllocateFrame") == 0); }, 1},
      {"change", Change, 2},
      {"change and stop", [](Host& host) { return Change(host) && Stop(host); }, 0},
      {"start and stop another",
       [](Host& host) { return StartAnother(host) && host.driver->GetVideoCapture()->StopCapture(1); }, 2},
      {"close", Close, 0},
      {"delete", Delete, 0},
  };
  for (const Place place : {Place::OnFrame, Place::OnNoData, Place::AllocateFrame, Place::ReleaseFrame}) {
    for (const auto& operation : operations) {
      SCOPED_TRACE(std::string(operation.name) + " in place " + std::to_string(static_cast<int>(place)));
      ScriptedCamera camera(1);
      Scene& scene = KeptScene();
      Host& host = scene.host;
      Open(host, camera);
      Hook(place, host, [&scene, run = operation.run] {
        scene.result = run(scene.host);
        scene.done.Set();
      });
      ASSERT_TRUE(Start(host));
      ASSERT_TRUE(scene.done.Wait(kWaitLimit));
      EXPECT_TRUE(scene.result);
      if (operation.starts != 0) {
        EXPECT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 3));
        EXPECT_LE(camera.log.Count("DESCRIBE"), operation.starts);
      } else if (place != Place::OnNoData && host.driver && host.driver->GetVideoCapture() != nullptr) {
        EXPECT_TRUE(host.log.WaitFor("ReleaseFrame"));  // after the end of the channel
        EXPECT_EQ(host.allocator.Outstanding(), 0U);
      }
      if (host.driver) {
        host.driver->Close();
      }
      EXPECT_EQ(host.log.Count("ReleaseFrame of"), 0U);
    }
  }
}

// A callback stays in the host for long: in OnFrame where it has stopped its channel, in OnNoData where a stop goes on
// without it. The driver may go meanwhile, or live on; the host can't know, and calls in as ever.
TEST(Callback, ThatOutlivesItsChannelTouchesNothingOfItsOwnAccord) {
  const auto isGone = [](Host& host) { return !host.driver; };
  const auto isStopped = [](Host& host) { return !HasStatus(host); };
  const struct {
    Place place;
    std::function<bool(Host&)> meanwhile;
    std::function<bool(Host&)> after;
  } rows[] = {
      {Place::OnFrame, Delete, isGone},           {Place::OnNoData, Delete, isGone},
      {Place::OnNoDataInAStream, Delete, isGone}, {Place::OnNoData, isStopped, StartAnother},
      {Place::OnNoData, isStopped, Close},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    ScriptedCamera camera(1);
    Scene& scene = KeptScene();
    if (row.place == Place::OnNoDataInAStream) {
      scene.host.Open(camera, 1, sarnevo::CodecMJPEG, SteadyTiming());  // which plays and sends nothing
    } else {
      Open(scene.host, camera);
    }
    const auto act = [&scene, &row] {
      EXPECT_TRUE(row.place != Place::OnFrame || Stop(scene.host));
      scene.inside.Set();
      scene.goOn.Wait();
      scene.result = row.after(scene.host);
      scene.done.Set();
    };
    Hook(row.place, scene.host, act, &camera);
    ASSERT_TRUE(Start(scene.host));
    ASSERT_TRUE(scene.inside.Wait(kWaitLimit));
    const auto begin = Clock::now();
    EXPECT_EQ(Stop(scene.host), row.place != Place::OnFrame);
    if (row.place == Place::OnNoDataInAStream) {
      EXPECT_EQ(camera.log.Count("PAUSE") + camera.log.Count("TEARDOWN"), 2U) << "the session is healthy";
    }
    if (row.place != Place::OnFrame) {
      EXPECT_GE(Since(begin), milliseconds(2 * 300));
      EXPECT_LT(Since(begin), milliseconds(10'000));
    } else {
      EXPECT_EQ(scene.host.allocator.Outstanding(), 1U);
    }
    EXPECT_TRUE(row.meanwhile(scene.host));
    scene.goOn.Set();
    ASSERT_TRUE(scene.done.Wait(kWaitLimit));
    EXPECT_TRUE(scene.result);
    EXPECT_FALSE(scene.host.driver && !Close(scene.host));
  }
}

// Each of two channels ends the other in its OnFrame at the same moment. One of them has to give way.
TEST(Callback, TwoThatEndEachOtherNeverWaitForEachOther) {
  for (int i = 0; i < 12; ++i) {  // they don't always meet that closely
    const bool sameDriver = i % 3 == 0;
    const bool close = i % 3 == 1;
    SCOPED_TRACE(std::string(close ? "close, " : "stop, ") + (sameDriver ? "one driver" : "two drivers"));
    ScriptedCamera cameras[] = {ScriptedCamera(1), ScriptedCamera(1, "127.0.0.2")};
    Scene* const scenes[] = {&KeptScene(), &KeptScene()};
    contract::IIPVideoCapture* captures[] = {&Open(scenes[0]->host, cameras[0]), nullptr};
    captures[1] = sameDriver ? captures[0] : &Open(scenes[1]->host, cameras[1]);
    const auto met = std::make_shared<std::atomic<int>>(0);
    for (const std::uint32_t own : {0U, 1U}) {
      Hook(Place::OnFrame, scenes[own]->host, [&, met, own] {
        for (++*met; *met < 2;) {
          // Both call within the same microsecond, so that neither finds the other's lock or claim.
        }
        scenes[own]->result = close ? Close(scenes[1 - own]->host) : captures[1 - own]->StopCapture(1 - own);
        scenes[own]->done.Set();
      });
    }
    ASSERT_TRUE(Start(scenes[0]->host));
    ASSERT_TRUE(scenes[0]->host.log.WaitFor("OnFrame"));  // the camera sends to its latest client only
    ASSERT_TRUE(captures[1]->StartCapture(1, &scenes[1]->host.sink, &scenes[1]->host.wanted));
    for (Scene* const scene : scenes) {
      EXPECT_TRUE(scene->done.Wait(kWaitLimit));
    }
    EXPECT_TRUE(scenes[0]->result || scenes[1]->result);
    scenes[0]->host.driver->Close();
    scenes[1]->host.driver->Close();
  }
}

// A host's thread waits in StopCapture for a callback, in OnFrame however long it takes, and that calls in.
TEST(Callback, CallsThatMeetAStopGiveWay) {
  ScriptedCamera otherCamera(1, "127.0.0.2");
  Host other;
  other.Open(otherCamera, 1, sarnevo::CodecMJPEG, SteadyTiming());
  const auto startOther = [&other](Host&) { return Start(other); };
  const struct {
    const char* name;
    Place place;
    std::function<bool(Host&)> run;
    bool expected = false;
  } rows[] = {
      {"stop in OnFrame", Place::OnFrame, Stop},
      {"start in OnFrame", Place::OnFrame, Start},
      // Nobody has to wait for a channel that is new.
      {"start another camera in OnFrame", Place::OnFrame, startOther, true},
      {"start another camera's channel anew in OnFrame", Place::OnFrame, startOther},
      {"longer than all time-outs", Place::OnFrame,
       [](Host&) { return std::this_thread::sleep_for(milliseconds(1500)), false; }},
      {"stop in OnNoData", Place::OnNoData, Stop},
      {"change in OnNoData", Place::OnNoData, Change},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedCamera camera(1);
    Scene scene;
    Open(scene.host, camera);
    scene.result = !row.expected;
    Hook(row.place, scene.host, [&] {
      scene.inside.Set();
      while (HasStatus(scene.host)) {  // a channel that runs has none only while it is being stopped
        std::this_thread::yield();
      }
      scene.result = row.run(scene.host);
    });
    ASSERT_TRUE(Start(scene.host));
    ASSERT_TRUE(scene.inside.Wait(kWaitLimit));
    EXPECT_TRUE(Stop(scene.host));
    EXPECT_EQ(scene.result, row.expected);
    EXPECT_EQ(scene.host.allocator.Outstanding(), 0U);
  }
}

// The host's own objects are asked in the midst of an operation. When the question is put, the channel is there, and
// its stream is at an end when its format changes.
TEST(Callback, InTheQuestionsOfStartAndChangeIsHarmless) {
  ScriptedCamera camera(1);
  Host host;
  Open(host, camera);
  std::string asked;
  host.wanted.onAsked = [&](const char* question) {
    asked += std::string(HasStatus(host) ? "" : "no channel at ") + question + " ";
  };
  ASSERT_TRUE(Start(host));
  EXPECT_EQ(asked, "GetRate GetFrameInterval GetFormat GetResolution GetWidth GetHeight GetRate GetQuality ");

  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  asked.clear();
  host.wanted.onAsked = [&](const char* question) {
    asked += std::to_string(camera.log.Count("TEARDOWN")) + " ended at " + question + " ";
  };
  EXPECT_TRUE(Change(host));
  EXPECT_EQ(asked, "1 ended at GetWidth 1 ended at GetHeight ");

  for (const auto& operation : {Start, Change}) {
    host.wanted.onAsked = [&, done = false](const char*) mutable {
      EXPECT_TRUE(std::exchange(done, true) || Stop(host));
    };
    EXPECT_FALSE(operation(host)) << "its channel was stopped meanwhile";
    EXPECT_FALSE(HasStatus(host));
    host.wanted.onAsked = nullptr;
    EXPECT_TRUE(Start(host));
  }
}

}  // namespace
}  // namespace kolvex_test
