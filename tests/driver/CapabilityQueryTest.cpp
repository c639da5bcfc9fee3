#include "driver/CapabilityQuery.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "kolvex/Exports.h"
#include "platform/Clock.h"
#include "platform/Event.h"
#include "support/RecordingCapabilities.h"
#include "support/CgiCamera.h"

namespace sarnevo {
namespace {

using namespace std::chrono_literals;
using kolvex_test::CgiCamera;
using kolvex_test::CgiReplies;
using kolvex_test::Group1Replies;
using kolvex_test::Group2Replies;
using kolvex_test::RecordingCapabilities;
using kolvex_test::Reply;
using kolvex_test::ScriptedServer;
using platform::Event;
using platform::MonotonicMilliseconds;
using platform::WaitResult;
using Connection = ScriptedServer::Connection;

// Short times for what would take seconds.
constexpr QueryTiming kQuick{.stopWait = 300ms, .stopMoment = 300ms};

class Observer : public ipcapture::ICapabilityObserver {
 public:
  void OnQueryDone() override { End("done"); }
  void OnQueryFailed(u32 level, const char* text) override { End(std::to_string(level) + " " + text); }
  void End(const std::string& how) {
    ended += how;
    thread = std::this_thread::get_id();
    over.Set();
    if (const auto call = then) {  // a copy: the call may change it, or end the observer
      call();
    }
  }
  std::string ended;
  std::thread::id thread;
  Event over;
  std::function<void()> then;
};

struct Host {
  Observer observer;
  RecordingCapabilities capabilities;
};

// One whole query; gives what the observer heard.
std::string Ask(CapabilityQuery& query, Host& host, const char* address, u16 port) {
  EXPECT_TRUE(query.Init(&host.observer, false));
  if (query.Start(address, port, "u", "p", &host.capabilities)) {
    EXPECT_EQ(host.observer.over.Wait(20s), WaitResult::Signalled);
  }
  query.Uninit();
  return host.observer.ended;
}

TEST(CapabilityQuery, TellsEachFailureFromTheOthers) {
  const auto changed = [](CgiReplies replies, const char* path, const std::string& reply) {
    replies[path] = reply;
    return replies;
  };
  struct Case {
    const char* name;
    CgiReplies replies;
    const char* ended;
    bool onThread;
  };
  const Case cases[] = {
      {"no camera of the family", {}, "3 Failed to get camera properties", false},
      {"an unknown model", Group2Replies("99"), "3 Failed to get camera properties!", true},
      {"credentials wrong for the model", changed(Group2Replies("81"), "/GetCameraType.cgi", Reply(401, "")),
       "1 Failed to get camera properties!", true},
      {"all well", Group1Replies(), "done", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const CgiCamera camera(c.replies);
    Host host;
    CapabilityQuery query;
    EXPECT_EQ(Ask(query, host, "127.0.0.1", camera.Port()), c.ended);
    EXPECT_EQ(host.observer.thread != std::this_thread::get_id(), c.onThread);
    EXPECT_EQ(host.capabilities.Transcript().empty(), c.ended != std::string("done"));
  }
}

TEST(CapabilityQuery, TakesWhatAHostMayPass) {
  const CgiCamera camera(Group2Replies("81"));
  struct Case {
    const char* address;
    u16 port;
    const char* ended;
  };
  for (const Case& c :
       {Case{nullptr, camera.Port(), "3 Failed to get camera properties"},
        Case{"", camera.Port(), "3 Failed to get camera properties"},
        Case{"not an address", camera.Port(), "3 Failed to get camera properties"},
        Case{"127.0.0.1", 0, "3 Failed to get camera properties"}, Case{"localhost", camera.Port(), "done"}}) {
    Host host;
    CapabilityQuery query;
    EXPECT_EQ(Ask(query, host, c.address, c.port), c.ended) << (c.address != nullptr ? c.address : "null");
  }

  // No observer, no capabilities, no texts, and getters that give nothing.
  CapabilityQuery query;
  EXPECT_FALSE(query.Start(nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_TRUE(query.Start("127.0.0.1", camera.Port(), nullptr, nullptr, nullptr));
  query.Uninit();
  Host poor;
  poor.capabilities.GiveNothing();
  EXPECT_EQ(Ask(query, poor, "127.0.0.1", camera.Port()), "done");
  EXPECT_NE(poor.capabilities.Transcript().find("setting 3:"), std::string::npos);
}

TEST(CapabilityQuery, KeepsItsStatesApart) {
  const CgiCamera group1(Group1Replies());
  const CgiCamera group2(Group2Replies("81"));
  Host host;
  CapabilityQuery query;
  query.Terminate();
  query.Uninit();
  EXPECT_TRUE(query.Init(&host.observer, true));
  EXPECT_FALSE(query.Init(&host.observer, false));
  Event goOn(false, true);
  host.observer.then = [&goOn] { goOn.Wait(20s); };
  ASSERT_TRUE(query.Start("127.0.0.1", group1.Port(), "u", "p", &host.capabilities));
  query.Terminate();
  ASSERT_EQ(host.observer.over.Wait(20s), WaitResult::Signalled);
  // The next may begin while the observer is still busy with the first. The object of the first query goes on
  // serving, whatever camera is asked, and remembers.
  RecordingCapabilities second;
  ASSERT_TRUE(query.Start("127.0.0.1", group1.Port(), "u", "p", &second));
  goOn.Set();
  ASSERT_EQ(host.observer.over.Wait(20s), WaitResult::Signalled);
  ASSERT_TRUE(query.Start("127.0.0.1", group2.Port(), "u", "p", &second));
  ASSERT_EQ(host.observer.over.Wait(20s), WaitResult::Signalled);
  query.Uninit();
  query.Uninit();
  EXPECT_EQ(host.observer.ended, "donedone3 Failed to get camera properties!");
  EXPECT_NE(second.Transcript().find("capability 7 = 1\ncapability 6 = 1\ncapability 7 = 1\ncapability 6 = 1"),
            std::string::npos)
      << second.Transcript();
  EXPECT_NE(second.Transcript().find("720x480"), std::string::npos) << "still NTSC";

  Host fresh;
  EXPECT_EQ(Ask(query, fresh, "127.0.0.1", group2.Port()), "done");
  EXPECT_TRUE(fresh.capabilities.Transcript().starts_with("model Kolvex P-410\n"));
}

TEST(CapabilityQuery, SurvivesWhatItsCallbacksDo) {
  const CgiCamera camera(Group2Replies("81"));
  CapabilityQuery query;
  Host throwing;
  throwing.observer.then = [] { throw std::runtime_error("host"); };
  EXPECT_EQ(Ask(query, throwing, "127.0.0.1", camera.Port()), "done");
  Host nobody;
  nobody.observer.then = [] { throw 42; };
  EXPECT_EQ(Ask(query, nobody, "", 0), "3 Failed to get camera properties");

  // A host that ends the query where it hears of its end, and one that begins the next one there.
  Host ending;
  Event ended;
  ending.observer.then = [&] {
    query.Uninit();
    ended.Set();
  };
  ASSERT_TRUE(query.Init(&ending.observer, false));
  ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &ending.capabilities));
  ASSERT_EQ(ended.Wait(20s), WaitResult::Signalled);
  Host again;
  Event second;
  again.observer.then = [&] {
    again.observer.then = [&second] { second.Set(); };
    EXPECT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &again.capabilities));
  };
  ASSERT_TRUE(query.Init(&again.observer, false));
  ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &again.capabilities));
  ASSERT_EQ(second.Wait(20s), WaitResult::Signalled);
  query.Uninit();
  EXPECT_EQ(again.observer.ended, "donedone");
}

// Cameras that let the query's thread go on for ever.
TEST(CapabilityQuery, EndsWithinItsTimeAgainstAnyCamera) {
  const std::string start = "HTTP/1.1 200 OK\r\n\r\nCameraType=";
  struct Case {
    const char* name;
    std::function<void(Connection&)> torment;
  };
  const Case cases[] = {
      {"says nothing", [](Connection& c) { c.WaitForEnd(); }},
      {"drips its body",
       [&](Connection& c) {
         c.Send(start);
         c.Drip(std::string(10'000, '1'), 5ms);
       }},
      {"never ends",
       [&](Connection& c) {
         c.Send(start);
         while (c.Send(std::string(1000, '1'))) {
           std::this_thread::sleep_for(20ms);
         }
       }},
  };
  // Of group 1 four requests would follow.
  for (const int group : {1, 2}) {
    CgiReplies detection = group == 1 ? Group1Replies() : Group2Replies("81");
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      Event reached;
      Event letGo;
      std::atomic<int> torments{0};
      ScriptedServer camera([&](Connection& connection) {
        const std::string head = connection.ReadHead();
        for (const char* const sound : {"/GetTime.cgi", "/time.cgi?action=retrieve", "/GetMAC.cgi"}) {
          if (head.find(std::string(sound) + " ") != head.npos) {
            const auto reply = detection.find(sound);
            connection.Send(reply != detection.end() ? reply->second : Reply(404, ""));
            return;
          }
        }
        ++torments;
        reached.Set();
        c.torment(connection);
        letGo.Set();
      });
      auto host = std::make_unique<Host>();
      CapabilityQuery query(kQuick);
      ASSERT_TRUE(query.Init(&host->observer, false));
      ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &host->capabilities));
      ASSERT_EQ(reached.Wait(20s), WaitResult::Signalled);
      const auto began = MonotonicMilliseconds();
      query.Uninit();
      const auto took = MonotonicMilliseconds() - began;
      EXPECT_GE(took, 300u);
      EXPECT_LT(took, 5000u);
      EXPECT_EQ(host->observer.ended, "") << "the observer was out of reach";
      EXPECT_EQ(letGo.Wait(5s), WaitResult::Signalled) << "the thread still talks to the camera";
      EXPECT_EQ(torments, 1) << "the thread went on to its next request";
      host.reset();
    }
  }
}

TEST(CapabilityQuery, TheHostsOwnThreadIsHeldForALimitedTime) {
  ScriptedServer camera([](Connection& connection) {
    connection.ReadHead();
    connection.Drip("HTTP/1.1 404 No\r\nX: " + std::string(10'000, 'd'), 5ms);
  });
  Host host;
  CapabilityQuery query({.detectionLimit = 600});
  const auto began = MonotonicMilliseconds();
  EXPECT_EQ(Ask(query, host, "127.0.0.1", camera.Port()), "3 Failed to get camera properties");
  EXPECT_LT(MonotonicMilliseconds() - began, 10'000u);
}

// A callback that returns when the query has long ended and the host's objects are gone.
class Stuck {
 public:
  void Block() {
    inside->Set();
    const auto keep = goOn;  // this object doesn't live that long
    keep->Wait();
  }
  std::shared_ptr<Event> inside = std::make_shared<Event>();
  std::shared_ptr<Event> goOn = std::make_shared<Event>();
};

class StuckCapabilities : public RecordingCapabilities, public Stuck {
 public:
  void SetCapability(u32 id, u32 value) override {
    RecordingCapabilities::SetCapability(id, value);
    if (id == ipcapture::CapabilityAudio) {
      Block();
    }
  }
};

class StuckObserver : public ipcapture::ICapabilityObserver, public Stuck {
 public:
  void OnQueryDone() override { Block(); }
  void OnQueryFailed(u32, const char*) override { ADD_FAILURE(); }
};

TEST(CapabilityQuery, LeavesAThreadThatTheHostHoldsBehind) {
  const CgiCamera camera(Group2Replies("81"));
  for (const bool whilePublishing : {true, false}) {
    auto observer = std::make_unique<Observer>();
    auto stuckObserver = std::make_unique<StuckObserver>();
    auto capabilities = std::make_unique<RecordingCapabilities>();
    auto stuckCapabilities = std::make_unique<StuckCapabilities>();
    const Stuck events = whilePublishing ? static_cast<Stuck&>(*stuckCapabilities) : *stuckObserver;
    auto query = std::make_unique<CapabilityQuery>(kQuick);
    ASSERT_TRUE(query->Init(
        whilePublishing ? static_cast<ipcapture::ICapabilityObserver*>(observer.get()) : stuckObserver.get(),
        false));
    ASSERT_TRUE(query->Start("127.0.0.1", camera.Port(), "u", "p",
                             whilePublishing ? stuckCapabilities.get() : capabilities.get()));
    ASSERT_EQ(events.inside->Wait(20s), WaitResult::Signalled);
    const auto began = MonotonicMilliseconds();
    query->Uninit();
    EXPECT_LT(MonotonicMilliseconds() - began, 5000u);
    query.reset();
    observer.reset();
    stuckObserver.reset();
    capabilities.reset();
    stuckCapabilities.reset();
    events.goOn->Set();
    // The thread's own share of the query goes with it; the event's last owner tells.
    while (events.goOn.use_count() > 1) {
      std::this_thread::yield();
    }
  }
}

struct Footprint {
  std::size_t descriptors;
  std::size_t threads;
  std::size_t kilobytes;
};

std::size_t Entries(const char* folder) {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator{}));
}

Footprint Measure() {
  std::size_t kilobytes = 0;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") {
      status >> kilobytes;
    }
  }
  return {Entries("/proc/self/fd"), Entries("/proc/self/task"), kilobytes};
}

TEST(CapabilityQuery, AThousandQueriesLeaveNothingBehind) {
  const ScriptedServer camera([replies = Group2Replies("81")](Connection& connection) {
    const std::string head = connection.ReadHead();
    connection.Send(replies.at(head.substr(4, head.find(' ', 4) - 4)));
  });
  const auto ask = [&camera](int times) {
    for (int i = 0; i < times; ++i) {
      Host host;
      ASSERT_EQ(InitCapabilityQuery(&host.observer, 0), 1u);
      ASSERT_EQ(StartCapabilityQuery("127.0.0.1", camera.Port(), "u", "p", &host.capabilities), 1u);
      if (i % 2 == 0) {  // every other one is ended while it may still run
        ASSERT_EQ(host.observer.over.Wait(20s), WaitResult::Signalled);
        ASSERT_EQ(host.observer.ended, "done");
      }
      ASSERT_EQ(TerminateCapabilityQuery(), 1u);
      ASSERT_EQ(UninitCapabilityQuery(), 1u);
    }
  };
  ask(100);
  const Footprint before = Measure();
  ask(1000);
  const auto began = MonotonicMilliseconds();
  while ((Measure().descriptors > before.descriptors || Measure().threads > before.threads) &&
         MonotonicMilliseconds() - began < 10'000) {
    std::this_thread::yield();  // the test's own server lets go of its ends
  }
  const Footprint after = Measure();
  EXPECT_LE(after.descriptors, before.descriptors);
  EXPECT_LE(after.threads, before.threads);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep what was freed
  EXPECT_LT(after.kilobytes, before.kilobytes + 1024);
#endif
}

}  // namespace
}  // namespace sarnevo
