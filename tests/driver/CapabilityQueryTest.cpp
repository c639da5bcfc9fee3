#include "driver/CapabilityQuery.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "kolvex/IIPCapabilities.h"
#include "platform/Clock.h"
#include "platform/Event.h"
#include "support/CgiCamera.h"
#include "support/RecordingCapabilities.h"

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

const std::string kStart = "HTTP/1.1 200 OK\r\n\r\nCameraType=";

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
  const CgiCamera sound(Group2Replies("81"));
  const CgiCamera stranger(CgiReplies{});
  const CgiCamera unknown(Group2Replies("99"));
  CgiReplies replies = Group2Replies("81");
  replies["/GetCameraType.cgi"] = Reply(401, "");
  const CgiCamera guarded(replies);
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
      {"127.0.0.1", guarded.Port(), "1 Failed to get camera properties!", true},
      {"localhost", sound.Port(), "done", true},
  };
  CapabilityQuery query;
  for (const auto& row : rows) {
    Host host;
    EXPECT_EQ(Ask(query, host, row.address, row.port), row.ended) << (row.address ? row.address : "null");
    EXPECT_EQ(host.observer.thread != std::this_thread::get_id(), row.onThread);
    EXPECT_EQ(host.capabilities.Transcript().empty(), row.ended != "done");
  }

  // No observer, no capabilities, no texts, and getters that give nothing.
  EXPECT_FALSE(query.Start(nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_TRUE(query.Start("127.0.0.1", sound.Port(), nullptr, nullptr, nullptr));
  query.Uninit();
  Host poor;
  poor.capabilities.GiveNothing();
  EXPECT_EQ(Ask(query, poor, "127.0.0.1", sound.Port()), "done");
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
  EXPECT_EQ(Ask(query, throwing, "", 0), "done3 Failed to get camera properties");

  // A host that begins the next query where it hears of the end of the first, and ends that one there.
  Host host;
  Event ended;
  host.observer.then = [&] {
    host.observer.then = [&] {
      query.Uninit();
      ended.Set();
    };
    EXPECT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &host.capabilities));
  };
  ASSERT_TRUE(query.Init(&host.observer, false));
  ASSERT_TRUE(query.Start("127.0.0.1", camera.Port(), "u", "p", &host.capabilities));
  ASSERT_EQ(ended.Wait(20s), WaitResult::Signalled);
  EXPECT_EQ(host.observer.ended, "donedone");
}

// Cameras that let the query's thread go on for ever.
TEST(CapabilityQuery, EndsWithinItsTimeAgainstAnyCamera) {
  const std::pair<const char*, std::function<void(Connection&)>> torments[] = {
      {"says nothing", [](Connection& c) { c.WaitForEnd(); }},
      {"drips its body", [](Connection& c) { c.Drip(kStart + std::string(10'000, '1'), 5ms); }},
      {"never ends",
       [](Connection& c) {
         for (c.Send(kStart); c.Send(std::string(1000, '1'));) {
           std::this_thread::sleep_for(20ms);
         }
       }},
  };
  for (const auto& [name, torment] : torments) {
    SCOPED_TRACE(name);
    Event reached;
    Event letGo;
    std::atomic<int> tormented{0};
    ScriptedServer camera([&, torment = torment](Connection& connection) {
      const std::string head = connection.ReadHead();
      if (head.find("ime.cgi") != head.npos) {  // a camera of group 1, to which four more requests would go
        connection.Send(head.find("/time.cgi") != head.npos ? Group1Replies().at("/time.cgi?action=retrieve")
                                                            : Reply(404, ""));
        return;
      }
      ++tormented;
      reached.Set();
      torment(connection);
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
    EXPECT_EQ(tormented, 1) << "the thread went on to its next request";
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

// One of its callbacks returns when the query has long ended and the object itself is gone.
class StuckHost : public RecordingCapabilities, public ipcapture::ICapabilityObserver {
 public:
  explicit StuckHost(bool whilePublishing) : whilePublishing_(whilePublishing) {}
  void SetCapability(u32 id, u32) override { Block(whilePublishing_ && id == ipcapture::CapabilityAudio); }
  void OnQueryDone() override { Block(!whilePublishing_); }
  void OnQueryFailed(u32, const char*) override { ADD_FAILURE(); }
  std::shared_ptr<Event> inside = std::make_shared<Event>();
  std::shared_ptr<Event> goOn = std::make_shared<Event>();

 private:
  void Block(bool here) const {
    if (here) {
      inside->Set();
      const auto keep = goOn;
      keep->Wait();
    }
  }
  const bool whilePublishing_;
};

TEST(CapabilityQuery, LeavesAThreadThatTheHostHoldsBehind) {
  const CgiCamera camera(Group2Replies("81"));
  for (const bool whilePublishing : {true, false}) {
    auto host = std::make_unique<StuckHost>(whilePublishing);
    const auto goOn = host->goOn;
    auto query = std::make_unique<CapabilityQuery>(kQuick);
    ASSERT_TRUE(query->Init(host.get(), false));
    ASSERT_TRUE(query->Start("127.0.0.1", camera.Port(), "u", "p", host.get()));
    ASSERT_EQ(host->inside->Wait(20s), WaitResult::Signalled);
    const auto began = MonotonicMilliseconds();
    query->Uninit();
    EXPECT_LT(MonotonicMilliseconds() - began, 5000u);
    query.reset();
    host.reset();
    goOn->Set();
    // The thread's own share of the query goes with it; the event's last owner tells.
    while (goOn.use_count() > 1) {
      std::this_thread::yield();
    }
  }
}

}  // namespace
}  // namespace sarnevo
