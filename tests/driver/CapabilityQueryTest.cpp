// How a query ends and what a host hears of each model of the family, call by call.
#include "driver/CapabilityQuery.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "kolvex/Exports.h"
#include "kolvex/IIPCapabilities.h"
#include "platform/Clock.h"
#include "platform/Event.h"
#include "support/CgiCamera.h"
#include "support/RecordingCapabilities.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using namespace kolvex_test;
using platform::Event;
using platform::MonotonicTime;
using Connection = CgiCamera::Connection;

// Short times for what would take seconds.
constexpr QueryTiming kQuick{.stopWait = 300ms};

struct Host : RecordingCapabilities, ipcapture::ICapabilityObserver {
  void SetCapability(u32 id, u32 value) override {
    if (const auto call = onCapability) {  // a copy: the call may outlive the host
      return call();
    }
    RecordingCapabilities::SetCapability(id, value);
  }
  void OnQueryDone() override { End("done"); }
  void OnQueryFailed(u32 level, const char* text) override { End(std::to_string(level) + " " + text); }
  void End(const std::string& how) {
    ended += how;
    thread = std::this_thread::get_id();
    over.Set();
    if (const auto call = then) {  // the call may also change it, or end the observer
      call();
    }
  }
  std::string ended;
  std::thread::id thread;
  Event over;
  std::function<void()> onCapability, then;
};

// One whole query; gives what the observer heard.
std::string Ask(CapabilityQuery& query, Host& host, const char* address, u16 port) {
  EXPECT_TRUE(query.Init(&host, false));
  if (query.Start(address, port, "root", "pass", &host)) {
    EXPECT_TRUE(host.over.Wait(kWaitLimit));
  }
  query.Uninit();
  return host.ended;
}

// As hosts ask, by the exported names. Each call on the host's objects is a line.
TEST(CapabilityQuery, DescribesEachModelToTheHost) {
  const std::pair<std::string, CgiReplies> models[] = {{"group-1", Group1Replies()},
                                                       {"P-405", Group2Replies("71")},
                                                       {"P-405M", Group2Replies("68")},
                                                       {"P-410", Group2Replies("81")},
                                                       {"P-412", Group2Replies("67")}};
  for (const auto& [model, replies] : models) {
    for (const bool isNTSC : {false, true}) {
      const std::string name = model + (isNTSC ? "-NTSC" : "-PAL");
      std::ifstream file(KOLVEX_TRANSCRIPTS "/" + name + ".txt");
      std::string transcript(std::istreambuf_iterator<char>(file), {});
      const CgiCamera camera(replies);
      ASSERT_NE(transcript.find("PORT"), transcript.npos);
      transcript.replace(transcript.find("PORT"), 4, std::to_string(camera.Port()));
      Host host;
      EXPECT_EQ(InitCapabilityQuery(&host, isNTSC ? 1 : 0), 1u);
      EXPECT_EQ(StartCapabilityQuery("127.0.0.1", camera.Port(), "root", "pass", &host), 1u);
      EXPECT_TRUE(host.over.Wait(kWaitLimit));
      EXPECT_EQ(UninitCapabilityQuery(), 1u);
      EXPECT_EQ(host.ended, "done");
      EXPECT_EQ(host.Transcript() + "\n", transcript) << name;
    }
  }
}

TEST(CapabilityQuery, NamesEachFailure) {
  const CgiCamera sound(Group2Replies("81"));
  const CgiCamera stranger(CgiReplies{});
  const CgiCamera unknown(Group2Replies("99"));
  const char* const kNoCamera = "3 Failed to get camera properties";
  const struct {
    const char* address;
    u16 port;
    std::string ended;
    bool onThread;
  } rows[] = {
      {"127.0.0.1", stranger.Port(), kNoCamera, false},
      {nullptr, sound.Port(), kNoCamera, false},
      {"", sound.Port(), kNoCamera, false},
      {"not an address", sound.Port(), kNoCamera, false},
      {"127.0.0.1", 0, kNoCamera, false},
      {"127.0.0.1", unknown.Port(), "3 Failed to get camera properties!", true},
      {"localhost", sound.Port(), "done", true},
  };
  CapabilityQuery query;
  for (const auto& row : rows) {
    Host host;
    EXPECT_EQ(Ask(query, host, row.address, row.port), row.ended) << (row.address ? row.address : "null");
    EXPECT_EQ(host.thread != std::this_thread::get_id(), row.onThread);
    EXPECT_EQ(host.Transcript().empty(), row.ended != "done");
  }

  // No observer, no capabilities, no texts, and getters that give nothing.
  EXPECT_FALSE(query.Start(nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_TRUE(query.Start("127.0.0.1", sound.Port(), nullptr, nullptr, nullptr));
  query.Uninit();
  Host poor;
  poor.GiveNothing();
  EXPECT_EQ(Ask(query, poor, "127.0.0.1", sound.Port()), "done");
  EXPECT_NE(poor.Transcript().find("setting 3:"), std::string::npos);
}

TEST(CapabilityQuery, KeepsItsStatesApart) {
  const CgiCamera group1(Group1Replies());
  const CgiCamera group2(Group2Replies("81"));
  Host host;
  CapabilityQuery query;
  query.Terminate();
  EXPECT_TRUE(query.Init(&host, true));
  EXPECT_FALSE(query.Init(&host, false));
  Event goOn(false, true);
  host.then = [&goOn] { goOn.Wait(kWaitLimit); };
  ASSERT_TRUE(query.Start("127.0.0.1", group1.Port(), "u", "p", &host));
  query.Terminate();
  ASSERT_TRUE(host.over.Wait(kWaitLimit));
  // The next may begin while the observer is still busy with the first. The object of the first query goes on
  // serving, whatever camera is asked, and remembers.
  RecordingCapabilities second;
  for (const CgiCamera* const camera : {&group1, &group2}) {
    ASSERT_TRUE(query.Start("127.0.0.1", camera->Port(), "u", "p", &second));
    goOn.Set();
    ASSERT_TRUE(host.over.Wait(kWaitLimit));
  }
  query.Uninit();
  query.Uninit();
  EXPECT_EQ(host.ended, "donedone3 Failed to get camera properties!");
  EXPECT_NE(second.Transcript().find("capability 7 = 1\ncapability 6 = 1\ncapability 7 = 1\ncapability 6 = 1"),
            std::string::npos)
      << second.Transcript();
  EXPECT_NE(second.Transcript().find("720x480"), std::string::npos) << "still NTSC";

  Host fresh;
  EXPECT_EQ(Ask(query, fresh, "127.0.0.1", group2.Port()), "done");
  EXPECT_TRUE(fresh.Transcript().starts_with("model Kolvex P-410\n"));
}

TEST(CapabilityQuery, SurvivesWhatItsCallbacksDo) {
  const CgiCamera camera(Group2Replies("81"));
  CapabilityQuery query;
  Host throwing;
  throwing.then = [] { throw std::runtime_error("host"); };
  EXPECT_EQ(Ask(query, throwing, "127.0.0.1", camera.Port()), "done");
  EXPECT_EQ(Ask(query, throwing, "", 0), "done3 Failed to get camera properties");

  // A host that begins the next query where it hears of the end of the first, and ends that one there.
  Host host;
  Event ended;
  host.then = [&] {
    host.then = [&] {
      query.Uninit();
      ended.Set();
    };
    EXPECT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &host));
  };
  ASSERT_TRUE(query.Init(&host, false));
  ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &host));
  ASSERT_TRUE(ended.Wait(kWaitLimit));
  EXPECT_EQ(host.ended, "donedone");
}

TEST(CapabilityQuery, TheHostsOwnThreadIsHeldForALimitedTime) {
  const CgiCamera camera([](Connection& connection, auto&) {
    connection.Drip("HTTP/1.1 404 No\r\nX: " + std::string(10'000, 'd'), 5ms);
  });
  Host host;
  CapabilityQuery query({.detection = {5'000, 600, false}});
  const auto began = MonotonicTime();
  EXPECT_EQ(Ask(query, host, "127.0.0.1", camera.Port()), "3 Failed to get camera properties");
  EXPECT_LT(MonotonicTime() - began, 30s);
}

// The limit is for the host's own thread alone.
TEST(CapabilityQuery, ASlowCameraIsReadInItsOwnTime) {
  constexpr u32 kLimitMs = 2'000;
  const CgiCamera camera([](Connection& connection, const std::string& head) {
    if (Target(head).find("GetCameraType") == std::string::npos) {
      connection.Send(Reply(200, ""));
    } else {
      connection.Drip("HTTP/1.1 200 OK\r\nX: " + std::string(kLimitMs / 5, 'd') + "\r\n\r\nCameraType=71", 5ms);
    }
  });
  Host host;
  CapabilityQuery query({.detection = {5'000, kLimitMs, false}});
  EXPECT_EQ(Ask(query, host, "127.0.0.1", camera.Port()), "done");
}

// Cameras and hosts that let the query's thread go on for ever.
TEST(CapabilityQuery, EndsWithinItsTimeAndWithoutItsThreadIfNeedBe) {
  const std::string start = "HTTP/1.1 200 OK\r\n\r\nCameraType=";
  const std::string inDone = "a host in OnQueryDone";
  const std::pair<std::string, std::function<void(Connection&)>> rows[] = {
      {"a silent camera", [](Connection& c) { c.WaitForEnd(); }},
      {"one that drips", [&](Connection& c) { c.Drip(start + std::string(10'000, '1'), 5ms); }},
      {"one that never ends",
       [&](Connection& c) {
         for (c.Send(start); c.Send(std::string(1000, '1'));) {
           std::this_thread::sleep_for(20ms);
         }
       }},
      {"a host in SetCapability", nullptr},
      {inDone, nullptr},
  };
  for (const auto& [place, torment] : rows) {
    SCOPED_TRACE(place);
    const auto inside = std::make_shared<Event>(), goOn = std::make_shared<Event>();
    Event letGo;
    std::atomic<int> tormented{0};
    const CgiCamera camera([&, torment = torment](Connection& connection, const std::string& head) {
      const std::string target = Target(head);
      const CgiReplies replies = Group1Replies();
      if (torment && target.find("ime.cgi") == target.npos) {  // the first of five requests
        ++tormented;
        inside->Set();
        torment(connection);
        letGo.Set();
      } else {
        connection.Send(replies.contains(target) ? replies.at(target) : Reply(404, ""));
      }
    });
    auto host = std::make_unique<Host>();
    if (!torment) {
      (place == inDone ? host->then : host->onCapability) = [inside, goOn] {
        inside->Set();
        goOn->Wait();
      };
    }
    auto query = std::make_unique<CapabilityQuery>(kQuick);
    ASSERT_TRUE(query->Init(host.get(), false));
    ASSERT_TRUE(query->Start("127.0.0.1", camera.Port(), "u", "p", host.get()));
    ASSERT_TRUE(inside->Wait(kWaitLimit));
    const auto began = MonotonicTime();
    query->Uninit();
    const auto took = MonotonicTime() - began;
    EXPECT_GE(took, 300ms);
    EXPECT_LT(took, 20s);  // of 50 that dripping takes
    EXPECT_EQ(host->ended, place == inDone ? "done" : "");
    query.reset();
    host.reset();  // out of reach
    goOn->Set();
    if (torment) {
      EXPECT_TRUE(letGo.Wait(kWaitLimit)) << "the thread still talks to the camera";
      EXPECT_EQ(tormented, 1) << "the thread went on to its next request";
    }
    // The thread's own share of the query goes with it; and is over when the event has one owner left.
    while (goOn.use_count() > 1) {
      std::this_thread::yield();
    }
  }
}

}  // namespace
}  // namespace sarnevo
