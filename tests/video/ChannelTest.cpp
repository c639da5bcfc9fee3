#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>

#include "platform/Socket.h"
#include "support/Eventually.h"
#include "support/Tasks.h"
#include "video/ChannelFixture.h"

namespace {
std::atomic<bool> threadsFail{false};
}

// In front of the C library's.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept {
  static auto* const next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return threadsFail ? EAGAIN : next(thread, attributes, body, argument);
}

namespace kolvex_test {
namespace {

using Connection = ScriptedCamera::Connection;

// What the camera was asked for after its configuration.
std::string DialogueOf(const ScriptedCamera& camera) {
  const std::string log = camera.log.Text();
  return log.substr(log.find('\n') + 1);
}

TEST(Channel, GivesFramesFromBothGroupsInBothCodecsAndTakesItsLeave) {
  const struct {
    int group;
    std::uint32_t codec;
    const char* configuration;
  } rows[] = {
      {1, sarnevo::CodecMJPEG, "GET /multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9"},
      {1, sarnevo::CodecMPEG4,
       "GET /multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&targetrate=3000"},
      {2, sarnevo::CodecMJPEG, "GET /SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mjpeg"},
      {2, sarnevo::CodecMPEG4, "GET /SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mpeg4"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.configuration);
    ScriptedCamera camera(row.group);
    Host host;
    auto& capture = host.Open(camera, row.group, row.codec, SteadyTiming());
    camera.StartSending(row.codec == sarnevo::CodecMJPEG ? JpegFramePacket(row.group) : Mpeg4KeyFramePacket());
    ASSERT_TRUE(capture.StartCapture(3, &host.sink, &host.wanted));
    ASSERT_TRUE(host.log.WaitFor("OnFrame", 3)) << camera.log.Text();
    EXPECT_FALSE(capture.StartCapture(3, &host.sink, &host.wanted));  // undisturbed
    std::uint32_t status = 7;
    std::uint32_t extra = 7;
    char text[4] = "abc";
    EXPECT_TRUE(capture.GetChannelStatus(3, &status, &extra, text, sizeof(text)));
    EXPECT_EQ(status + extra + static_cast<unsigned char>(text[0]), 0U);
    ASSERT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 2));
    EXPECT_TRUE(capture.StopCapture(3));
    EXPECT_FALSE(capture.StopCapture(3));
    EXPECT_EQ(camera.log.Count(row.configuration), 1U) << camera.log.Text();
    EXPECT_EQ(DialogueOf(camera), "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n");
    EXPECT_EQ(host.allocator.Outstanding(), 0U);
    const std::size_t frames = host.log.Count("OnFrame");
    EXPECT_FALSE(host.log.WaitFor("OnFrame", frames + 1, milliseconds(20)));  // nothing runs any more
  }
}

TEST(Channel, ReportsThatNothingComesAtTheReceiveTimeoutsPace) {
  ScriptedCamera camera(2);
  Host host;
  auto& capture = host.Open(camera, 2, sarnevo::CodecMJPEG);
  camera.onHttp = [](Connection&, const std::string&) { return true; };  // no answer at all
  const auto begin = Clock::now();
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(host.log.WaitFor("OnNoData", 4));    // once after the first pass,
  EXPECT_GE(Since(begin), milliseconds(3 * 300));  // then at its pace
  EXPECT_EQ(camera.log.Count("DESCRIBE"), 0U);
}

TEST(Channel, CleansUpAfterEachStepThatFailsAndTriesAgain) {
  constexpr const char* kRefusal = "RTSP/1.0 404 Not Found\r\nCSeq: 1\r\n\r\n";
  const struct {
    const char* refused;
    const char* reply;
    const char* dialogue;
    std::size_t from = 1;  // the first that is refused
  } rows[] = {
      // The configuration is asked for until the camera takes it.
      {"GET", "HTTP/1.1 200 OK\r\n\r\nret=404", ""},
      {"GET", "HTTP/1.1 200 OK\r\n\r\nret=20", ""},
      {"GET", "HTTP/1.1 200 OK\r\n\r\nret=200 more", "DESCRIBE\nSETUP 3556-3557\nPLAY\n"},
      // A DESCRIBE may fail; only what it leaves unread spoils the next reply.
      {"DESCRIBE", "RTSP/1.0 404 Not Found\r\n", "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n"},
      {"DESCRIBE", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPAUSE\nDESCRIBE\n"},
      {"SETUP", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPAUSE\nDESCRIBE\n"},
      {"SETUP", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\nDESCRIBE\nSETUP 3556-3557\n", 2},
      {"PLAY", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\nDESCRIBE\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reply + std::string(" to ") + row.refused);
    ScriptedCamera camera(1);
    camera.onHttp = camera.onRtsp = [&](Connection& connection, const std::string& request) {
      return request.starts_with(row.refused) && camera.log.Count(row.refused) >= row.from &&
             connection.Send(row.reply);
    };
    Host host;
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    const bool isConfigured = *row.dialogue != '\0';
    EXPECT_TRUE(!isConfigured ? camera.log.WaitFor("GET", 3)
                              : camera.log.WaitFor(row.from > 1 ? row.refused : "DESCRIBE", 2));
    EXPECT_TRUE(capture.StopCapture(0));
    EXPECT_TRUE(DialogueOf(camera).starts_with(row.dialogue)) << camera.log.Text();
    // Not only that of the last attempt.
    EXPECT_TRUE(Eventually([] { return TasksNamed("KolvexRTP").empty() && TasksNamed("KolvexRTCP").empty(); }));
    EXPECT_EQ(camera.log.Count("GET") == 1, isConfigured);
    EXPECT_EQ(camera.log.Count("DESCRIBE") != 0, isConfigured);
  }
}

TEST(Channel, WaitsForAPortPairWhenThereIsNone) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  {
    std::list<sarnevo::platform::Socket> taken;
    for (std::uint16_t port = 3556; port < 4556; port = static_cast<std::uint16_t>(port + 2)) {
      taken.emplace_back().Open(sarnevo::platform::Transport::Udp);
      taken.back().Bind(sarnevo::platform::SocketAddress::Any(port));
    }
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(camera.log.WaitFor("PAUSE", 2));  // tried, failed, cleaned up, again
    EXPECT_EQ(camera.log.Count("SETUP"), 0U);
  }
  EXPECT_TRUE(camera.log.WaitFor("SETUP 3556-3557")) << camera.log.Text();
}

TEST(Channel, StopIsBoundedInEveryState) {
  // A camera and a host of its own beside others, each at its own address, and where the camera lets it wait.
  struct Scene {
    Scene(std::size_t number, std::string theMethod, bool theDrips)
        : method(std::move(theMethod)),
          drips(theDrips),
          camera(1, "127.0.1." + std::to_string(number + 1), method != "connect") {}
    const std::string method;
    const bool drips;
    ScriptedCamera camera;
    Host host;
    std::future<milliseconds> stopping;
  };
  const Blackhole blackhole("127.0.1.1", 554);
  std::vector<std::unique_ptr<Scene>> scenes;
  for (const char* method : {"connect", "GET", "DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN"}) {
    for (const bool drips : {false, true}) {
      if (drips && method == std::string("connect")) {
        continue;
      }
      Scene& scene = *scenes.emplace_back(std::make_unique<Scene>(scenes.size(), method, drips));
      scene.camera.onHttp = scene.camera.onRtsp = [&scene](Connection& connection, const std::string& request) {
        if (!request.starts_with(scene.method)) {
          return false;
        }
        scene.drips ? static_cast<void>(connection.Drip(std::string(100'000, 'x'), milliseconds(20)))
                    : connection.WaitForEnd();
        return true;
      };
      auto& capture = scene.host.Open(scene.camera, 1, sarnevo::CodecMJPEG, QuickTiming(), "600000");
      ASSERT_TRUE(capture.StartCapture(0, &scene.host.sink, &scene.host.wanted));
    }
  }
  for (const auto& scene : scenes) {
    const bool isFarewell = scene->method == "PAUSE" || scene->method == "TEARDOWN";
    ASSERT_TRUE(scene->camera.log.WaitFor(isFarewell                   ? "PLAY"
                                          : scene->method == "connect" ? "GET"
                                                                       : scene->method));
  }
  std::this_thread::sleep_for(milliseconds(200));  // into the middle of what is dripping
  for (const auto& scene : scenes) {
    scene->stopping = std::async(std::launch::async, [&scene] {
      const auto begin = Clock::now();
      EXPECT_TRUE(scene->host.driver->GetVideoCapture()->StopCapture(0));
      return Since(begin);
    });
  }
  for (const auto& scene : scenes) {
    // Twice the receive time-out, as much for each of the farewell's two requests, and as much again for a busy machine:
    // less than a farewell takes that waits for a whole further piece of each reply.
    EXPECT_LT(scene->stopping.get(), milliseconds(2 * (2 * 600 + 2 * 600))) << scene->method;
  }
}

TEST(Channel, WithoutAThreadKeepsItsPlaceAndItsFirstSink) {
  ScriptedCamera camera(1);
  camera.StartSending(JpegFramePacket(1));
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG, SteadyTiming());
  threadsFail = true;
  EXPECT_FALSE(capture.StartCapture(0, &host.sink, &host.wanted));
  threadsFail = false;
  EXPECT_TRUE(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 0));
  HostLog log;
  FakeSink second(log);
  EXPECT_TRUE(capture.StartCapture(0, &second, &host.wanted));
  EXPECT_TRUE(host.log.WaitFor("OnFrame"));
  EXPECT_TRUE(capture.StopCapture(0));
  EXPECT_EQ(log.Text(), "");
}

TEST(Channel, RefusesWildArgumentsWithoutATraceAndRunsWithoutASink) {
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
       {static_cast<FakeVideoParams*>(nullptr), &incomplete[0], &incomplete[1], &incomplete[2]}) {
    EXPECT_FALSE(capture.StartCapture(0, &host.sink, params));
    EXPECT_EQ(capture.GetChannelStatus(0, nullptr, nullptr, nullptr, 9), params != nullptr);
  }
  EXPECT_TRUE(capture.StopCapture(0)) << "a channel that didn't start stays until it is stopped";

  ASSERT_TRUE(capture.StartCapture(15, nullptr, &host.wanted));
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
