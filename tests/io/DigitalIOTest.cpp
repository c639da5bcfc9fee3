#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "driver/CKolvexIPCaptureDriver.h"
#include "io/CGroupDigitalIO.h"
#include "io/CKolvexIOHandler.h"
#include "platform/Clock.h"
#include "support/CgiCamera.h"
#include "support/Eventually.h"
#include "support/FakeHost.h"
#include "support/MakeOwned.h"
#include "support/ScriptedServer.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;
using kolvex_test::FakeCallback;
using kolvex_test::HostLog;
using kolvex_test::kWaitLimit;
using kolvex_test::MakeOwned;
using kolvex_test::Reply;
using kolvex_test::ScriptedServer;

constexpr u32 kPollMs = 3;
// What a stop may take beyond its time-out, also under a sanitizer on a busy machine.
constexpr platform::Milliseconds kStopSlack{500};

// Digital I/O with a camera that is a handful of fields.
class FakeIO : public CIOBase {
 public:
  using CIOBase::CIOBase;

  // Waits until a poll has begun and ended after this call.
  void AwaitPoll() {
    const u32 seen = polls;
    EXPECT_TRUE(Eventually([&] { return polls >= seen + 2; }));
  }

  HostLog written;
  std::atomic<u32> polls{0};
  std::atomic<u32> highInputs{0};  // a bit for each of the first 32 inputs
  std::atomic<bool> readsFail{false}, writesFail{false};
  std::function<void()> duringWrite;  // set before Start

 protected:
  bool WriteOutput(u32 index, u32 state) override {
    if (duringWrite) {
      duringWrite();
    }
    if (writesFail) {
      return false;
    }
    written.Add(std::to_string(index) + " to " + std::to_string(state));
    return true;
  }

  bool ReadInputs(u32 count) override {
    const bool good = !readsFail;
    for (u32 index = 0; good && index < count; ++index) {
      UpdateInput(index, (highInputs >> index % 32 & 1) != 0 ? IOStateHigh : IOStateLow);
    }
    ++polls;
    return good;
  }
};

// The host of the digital I/O of a camera at @p port: of either group, or of a fake one (group 0).
struct Fixture {
  Fixture(int group, u32 inputs, u32 outputs, u16 port = 80, std::function<void()> inCallback = {},
          u32 stopTimeoutMs = CIOBase::kStopTimeoutMs)
      : callback(log, std::move(inCallback)) {
    kolvex_test::FakeParams params;
    params.inputs = inputs;
    params.outputs = outputs;
    params.port = port;
    params.settings[SettingNetworkTimeout] = "10000";  // no reply is late, however busy the machine is
    EXPECT_TRUE(driver.Open(nullptr, nullptr, &params));
    if (group == 0) {
      const auto made = MakeOwned<FakeIO>(&driver, kPollMs, stopTimeoutMs);
      fake = made.get();
      io = made;
    } else if (group == 1) {
      io = MakeOwned<CKolvexGroup1DigitalIO>(&driver, kPollMs, stopTimeoutMs);
    } else {
      io = MakeOwned<CKolvexGroup2DigitalIO>(&driver, kPollMs, stopTimeoutMs);
    }
    EXPECT_TRUE(io->SetCallback(&callback));
  }

  HostLog log;
  FakeCallback callback;
  CKolvexIPCaptureDriver driver;
  FakeIO* fake = nullptr;
  std::shared_ptr<CIOBase> io;
};

// What the log says when it is @p expected, or else after a while.
std::string Awaited(const HostLog& log, const std::string& expected) {
  Eventually([&] { return log.Text() == expected; });
  return log.Text();
}

// Starts and stops until a stop is in time, and gives what it took; a busy machine may spoil some.
template <typename Ready>
platform::Nanoseconds BestStop(CIOBase& io, platform::Milliseconds bound, Ready isReady) {
  auto best = platform::Nanoseconds::max();
  for (int attempt = 0; attempt < 5 && best > bound; ++attempt) {
    EXPECT_TRUE(io.Start());
    EXPECT_TRUE(isReady());
    const auto begin = platform::MonotonicTime();
    EXPECT_TRUE(io.Stop());
    best = std::min(best, platform::MonotonicTime() - begin);
  }
  return best;
}

TEST(CIOBase, ReportsEachInputOnceAndThenItsChangesWithOrWithoutACallback) {
  Fixture f(0, 2, 0, 80, [] { throw 42; });
  f.fake->highInputs = 0b10;
  EXPECT_FALSE(f.io->SetCallback(nullptr)) << "keeps the one before";
  ASSERT_TRUE(f.io->Start());
  f.fake->AwaitPoll();
  EXPECT_EQ(f.log.Text(), "input 0 is 1\ninput 1 is 2\n");
  f.fake->highInputs = 0b11;
  f.fake->AwaitPoll();
  EXPECT_EQ(f.log.Text(), "input 0 is 1\ninput 1 is 2\ninput 0 is 2\n");
  f.log.Clear();
  f.fake->readsFail = true;
  EXPECT_TRUE(f.log.WaitFor("failure"));
  f.fake->AwaitPoll();
  f.fake->readsFail = false;
  f.fake->AwaitPoll();
  f.fake->AwaitPoll();
  EXPECT_THAT(f.log.Text(), testing::MatchesRegex("(failure\n)+input 0 is 2\ninput 1 is 2\n"));
  EXPECT_TRUE(f.io->Stop());
  const auto alone = MakeOwned<FakeIO>(&f.driver, kPollMs);
  ASSERT_TRUE(alone->Start());
  alone->AwaitPoll();
  alone->readsFail = true;
  alone->AwaitPoll();
}

TEST(CIOBase, SendsOutputsThatChangeAllLowAtEachStartAndForgetsThemAtAFailure) {
  Fixture f(0, 1, 2);
  HostLog& written = f.fake->written;
  EXPECT_TRUE(f.io->SetOutput(1, IOStateHigh)) << "before Start it waits";
  ASSERT_TRUE(f.io->Start());
  EXPECT_FALSE(f.io->Start()) << "the second asks for low again, which it is by then";
  for (const auto& [index, state] : std::initializer_list<std::pair<u32, u32>>{
           {0, IOStateHigh}, {0, IOStateHigh}, {5, IOStateHigh}, {1, IOStateHigh}, {0, IOStateLow}}) {
    EXPECT_TRUE(f.io->SetOutput(index, state));
  }
  EXPECT_TRUE(Eventually([&] { return written.Text().ends_with("0 to 2\n1 to 2\n0 to 1\n"); }))
      << written.Text();
  EXPECT_TRUE(written.Text().starts_with("1 to 2\n0 to 1\n1 to 1\n")) << written.Text();
  EXPECT_TRUE(f.io->Stop());
  EXPECT_FALSE(f.io->SetOutput(0, IOStateHigh)) << "stopped";
  written.Clear();
  ASSERT_TRUE(f.io->Start());
  EXPECT_EQ(Awaited(written, "0 to 1\n1 to 1\n"), "0 to 1\n1 to 1\n")
      << "the camera was left with output 1 high";
  f.fake->AwaitPoll();
  f.log.Clear();
  written.Clear();
  f.fake->writesFail = true;
  EXPECT_TRUE(f.io->SetOutput(0, IOStateHigh));
  EXPECT_EQ(Awaited(f.log, "failure\ninput 0 is 1\n"), "failure\ninput 0 is 1\n");
  f.fake->writesFail = false;
  EXPECT_TRUE(f.io->SetOutput(1, IOStateLow)) << "low is no longer known";
  EXPECT_EQ(Awaited(written, "1 to 1\n"), "1 to 1\n");
}

TEST(CIOBase, TakesAnyNumberOfPortsUpToItsBound) {
  for (const u32 count : {0U, 1U, 64U, 256U, 257U, 4'000'000'000U}) {
    for (const bool inputs : {true, false}) {
      SCOPED_TRACE(std::to_string(count) + (inputs ? " inputs" : " outputs"));
      Fixture f(0, inputs ? count : 0, inputs ? 0 : count);
      EXPECT_EQ(inputs ? f.io->GetInputCount() : f.io->GetOutputCount(), count);
      EXPECT_EQ(f.io->Start(), count <= 256);
      if (count > 0 && count <= 256) {
        const std::string last = std::to_string(count - 1);
        EXPECT_TRUE(inputs ? f.log.WaitFor("input " + last + " is 1")
                           : f.fake->written.WaitFor(last + " to 1"));
      }
      EXPECT_TRUE(f.io->SetOutput(4'000'000'000, 7));
      EXPECT_TRUE(f.io->Stop());
    }
  }
}

// A callback that stops, starts or sets, or destroys the object, on the input thread and on the output thread.
TEST(CIOBase, MayBeCalledAndDestroyedInItsOwnCallbacks) {
  for (const bool onInput : {true, false}) {
    for (const bool destroys : {true, false}) {
      std::shared_ptr<CIOBase> io;
      std::atomic<int> calls{0};
      platform::Event started;
      platform::Event done;
      Fixture f(0, onInput ? 1 : 0, 1, 80, [&] {
        if (++calls > 1) {
          return;
        }
        started.Wait();
        if (destroys) {
          io.reset();
        } else {
          EXPECT_TRUE(io->SetOutput(0, IOStateHigh));
          EXPECT_FALSE(io->Start());
          EXPECT_FALSE(io->Stop());
          EXPECT_FALSE(io->SetOutput(0, IOStateHigh));
        }
        done.Set();
      });
      io = std::move(f.io);
      f.fake->writesFail = !onInput;
      ASSERT_TRUE(io->Start());
      started.Set();
      ASSERT_TRUE(done.Wait(kWaitLimit));
      EXPECT_TRUE(destroys || io->Stop());
      EXPECT_EQ(calls, 1);
    }
  }
}

TEST(CIOBase, StopsInTimeWithACallbackThatNeverReturnsAndMayThenGo) {
  for (const bool onInput : {true, false}) {
    constexpr u32 kStopTimeout = 100;
    platform::Event inside;
    platform::Event release(false, true);
    std::atomic<int> entered{0};
    std::atomic<int> left{0};
    const auto inCallback = [&] {
      ++entered;
      inside.Set();
      release.Wait();
      ++left;
    };
    Fixture f(0, onInput ? 2 : 0, onInput ? 0 : 2, 80, inCallback, kStopTimeout);
    f.fake->writesFail = true;
    const auto isInside = [&] { return inside.Wait(kWaitLimit); };
    // With a new thread each time, while the old ones are still in the host.
    constexpr auto kBound = platform::Milliseconds{kStopTimeout} + kStopSlack;
    EXPECT_LE(BestStop(*f.io, kBound, isInside), kBound);
    ASSERT_TRUE(f.io->Start());
    ASSERT_TRUE(isInside());
    f.io.reset();
    release.Set();
    EXPECT_TRUE(Eventually([&] { return left == entered; })) << left << " threads left the host";
  }
}

// One thread is in the middle of a stop, which waits for a request, while the object ends on another: the stop or the
// end is in a callback.
TEST(CIOBase, MayBeDestroyedOnOneThreadWhileAnotherStopsIt) {
  for (const bool callbackEnds : {false, true}) {
    std::shared_ptr<CIOBase> owned;
    CIOBase* io = nullptr;
    platform::Event started;
    platform::Event writing;
    platform::Event request;
    platform::Event left;
    const auto endDuringStop = [&] {
      EXPECT_TRUE(Eventually([&] { return !io->SetOutput(0, IOStateHigh); })) << "nobody stops";
      owned.reset();
    };
    const auto inCallback = [&] {
      started.Wait();
      if (callbackEnds) {
        endDuringStop();
      } else {
        EXPECT_FALSE(io->Stop());
      }
      left.Set();
    };
    Fixture f(0, 1, 1, 80, inCallback, 100);
    owned = std::move(f.io);
    io = owned.get();
    f.fake->duringWrite = [&] {
      const std::stop_callback interrupt(own_thread::InterruptToken(), [&] { request.Set(); });
      writing.Set();
      request.Wait();
    };
    ASSERT_TRUE(io->Start());
    ASSERT_TRUE(writing.Wait(kWaitLimit));
    started.Set();
    if (callbackEnds) {
      EXPECT_TRUE(io->Stop());
    } else {
      endDuringStop();
    }
    EXPECT_TRUE(left.Wait(callbackEnds ? kWaitLimit : platform::Milliseconds{0}));
  }
}

// Over one connection, which this camera closes after every third reply, until the stop. More replies are inputs
// of the fuzz target.
TEST(GroupDigitalIO, ReadsInputsFromReplies) {
  const std::string kBoth = "input 0 is 1\ninput 1 is 2\n";
  std::string hostile = "gpio1=0&";
  while (hostile.size() < 990'000) {
    hostile += "gpio2&gpio2gpio2";
  }
  struct {
    const char* name;
    int group;
    std::string reply;
    std::string expected;
  } const cases[] = {
      {"in order, marked up", 2, Reply(200, "<html>Input1_Sensor=0<br>Input2_Sensor=1</html>"), kBoth},
      {"a zero anywhere is low, a missing key is high", 1, Reply(200, "gpio1=10"), kBoth},
      {"nothing counts after a zero byte", 1, Reply(200, std::string("gpio1=0&\0gpio2=0", 16)), kBoth},
      {"large, and full of a key without a value", 1, Reply(200, hostile), kBoth},
      {"too large to be one", 1, Reply(200, hostile + hostile), ""},
      {"without a body", 2, "HTTP/1.1 204 No Content\r\n\r\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::atomic<std::size_t> polls{0}, open{0};
    ScriptedServer camera([&](ScriptedServer::Connection& connection) {
      ++open;
      std::string head;
      for (int i = 0; i < 3 && !(head = connection.ReadHead()).empty(); ++i) {
        EXPECT_TRUE(head.starts_with(c.group == 1 ? "GET /gpio.cgi?action=retrieve HTTP/1.1\r\n"
                                                  : "GET /GetGPIO.cgi HTTP/1.1\r\n"));
        ++polls;
        connection.Send(c.reply);
      }
      --open;
    });
    Fixture f(c.group, 2, 0, camera.Port());
    const auto begin = platform::MonotonicTime();
    ASSERT_TRUE(f.io->Start());
    EXPECT_TRUE(Eventually([&] { return polls >= 8; }));  // in the middle of a connection, or soon after it
    EXPECT_GE(platform::MonotonicTime() - begin, platform::Milliseconds{7 * kPollMs});
    EXPECT_TRUE(f.io->Stop());
    EXPECT_EQ(f.log.Text(), c.expected);
    if (c.reply.size() < 1'000'000) {  // else its connection is good for nothing
      EXPECT_TRUE(Eventually([&] { return open == 0; })) << "the stopped poller holds its connection";
      EXPECT_LE(camera.Count(), polls / 3 + 2);
    }
  }
}

// However a camera keeps the requests, of which an output's and the inputs' don't wait for each other, the stop is
// in time and the host hears of no input that never was.
TEST(GroupDigitalIO, StopsInTimeWhateverTheCameraDoes) {
  using Connection = ScriptedServer::Connection;
  constexpr std::chrono::milliseconds kPause{10};
  const std::string endless = "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n";
  const std::function<void(Connection&)> kCameras[] = {
      [](Connection& c) { c.WaitForEnd(); },
      [&](Connection& c) { c.Send(endless + "gpio1=0&"), c.WaitForEnd(); },
      [&](Connection& c) { c.Drip("HTTP/1.1 200 OK\r\n" + std::string(9999, 'a'), kPause); },
      [&](Connection& c) { c.Send(endless), c.Drip(std::string(9999, '&'), kPause); },
  };
  for (const auto& script : kCameras) {
    SCOPED_TRACE(&script - kCameras);
    constexpr u32 kStopTimeout = 60;
    constexpr auto kBound = 2 * (platform::Milliseconds{kStopTimeout} + kStopSlack);
    const kolvex_test::CgiCamera camera([&](Connection& connection, auto&) { script(connection); });
    Fixture f(1, 2, 1, camera.Port(), {}, kStopTimeout);
    std::size_t expected = 0;
    const auto hasBoth = [&] {
      expected += 2;
      return Eventually([&] { return camera.heads.Count("") == expected; });
    };
    EXPECT_LE(BestStop(*f.io, kBound, hasBoth), kBound);
    EXPECT_EQ(f.log.Text(), "") << "what the stop itself broke off is no failure";
  }
}

// One host's thread starts and others stop, with a camera that has nothing against it.
TEST(GroupDigitalIO, AStopBreaksOffNothingOfTheNextStart) {
  std::atomic<std::size_t> requests{0};
  ScriptedServer camera([&](ScriptedServer::Connection& connection) {
    for (; !connection.ReadHead().empty(); connection.Send(Reply(200, "gpio1=0&"))) {
      ++requests;
    }
  });
  Fixture f(1, 1, 4, camera.Port());
  const auto host = [&](bool starts) {
    while (requests < 2000) {
      starts ? f.io->Start() : f.io->Stop();
    }
  };
  (void)std::array{std::jthread(host, true), std::jthread(host, false), std::jthread(host, false)};
  EXPECT_EQ(f.log.Count("failure"), 0U);
}

// 10,000 random operations from four threads, and more from inside the callbacks, with a camera that refuses,
// ends the connection, or falls silent and is cut off by a stop. An output counts from the moment at which the
// camera has its request, whatever becomes of the reply.
TEST(GroupDigitalIO, KeepsStepWithACameraThatComesAndGoes) {
  constexpr u32 kMarker = 3;  // an output that only the end of the test switches
  constexpr u32 kOutputs = 4;
  enum Mood : u32 { Sound, Refuses, Ends, TakesAndEnds, Silent, kMoods };
  for (const int group : {1, 2}) {
    std::atomic<u32> mood{Sound};
    std::array<std::atomic<bool>, kOutputs> outputs{};  // high
    std::atomic<std::size_t> served{0};
    ScriptedServer camera([&](ScriptedServer::Connection& connection) {
      const std::string head = connection.ReadHead();
      const u32 now = mood;
      const std::string words = group == 1 ? "GET /gpio.cgi?action=apply&relayid=" : "GET /SetGPIO.cgi?Out";
      for (u32 index = 0; index < kOutputs && (now == Sound || now == TakesAndEnds); ++index) {
        const std::string name = words + std::to_string(index + 1) + (group == 1 ? "&value=" : "STA=");
        for (const bool high : {false, true}) {
          if (head.starts_with(name + (high ? "1" : "0") + " HTTP/1.1\r\n")) {
            outputs[index] = high;
          }
        }
      }
      if (now == Silent) {
        connection.WaitForEnd();
      } else if (now == Sound) {
        connection.Send(Reply(200, "gpio1=0&<>Input1_Sensor=0<>"));
      } else if (now == Refuses) {
        connection.Send(Reply(503, ""));
      }
      ++served;
    });
    const auto operate = [](CIOBase& io, u32 kind, u32 number) {
      if (kind == 0) {
        io.Start();
      } else if (kind == 1) {
        io.Stop();
      } else {
        const u32 index = number % 4;
        io.SetOutput(index == kMarker ? kOutputs : index, IOStateLow + number / 4 % 2);
      }
    };
    std::atomic<CIOBase*> operated{nullptr};
    std::atomic<u32> callbacks{0};
    const auto inCallback = [&] {
      if (CIOBase* const io = operated; io != nullptr) {
        const u32 number = ++callbacks;
        operate(*io, number % 7, number);
      }
    };
    Fixture f(group, 1, kOutputs, camera.Port(), inCallback, 20);
    // What hosts do meanwhile: everything, or only what takes no Start and Stop to end.
    const auto run = [&](int operations, bool everything) {
      std::vector<std::jthread> hosts;
      for (u32 seed = 0; seed < 4; ++seed) {
        hosts.emplace_back([&, random = std::mt19937(seed)]() mutable {
          for (int i = 0; i < operations; ++i) {
            const u32 number = static_cast<u32>(random());
            if (number % 16 == 15) {
              mood = number / 16 % 8 == 0 ? number / 128 % (everything ? kMoods : u32{Silent}) : u32{Sound};
            } else {
              operate(*f.io, everything ? number % 16 : 2, number / 16);
            }
          }
        });
      }
    };
    operated = f.io.get();
    run(2000, true);
    operated = nullptr;
    mood = Sound;
    // What a stop has cut off may still be on its way into the camera, in front of this request.
    f.io->Stop();
    Web::HttpRequest last("127.0.0.1", camera.Port(), "", "", 10'000, 16, 0);
    EXPECT_TRUE(last.Send("GET", "/", false));
    EXPECT_TRUE(Eventually([&] { return served == camera.Count(); }));

    // What is remembered of each output is what the camera has: setting it to the opposite reaches it.
    EXPECT_TRUE(f.io->Start());
    run(500, false);
    mood = Sound;
    EXPECT_TRUE(f.io->SetOutput(kMarker, IOStateHigh));
    EXPECT_TRUE(Eventually([&] { return outputs[kMarker].load(); })) << "the requests before it are through";
    for (u32 index = 0; index < kOutputs; ++index) {
      const bool high = !outputs[index];
      EXPECT_TRUE(f.io->SetOutput(index, high ? 7U : u32{IOStateLow}));
      EXPECT_TRUE(Eventually([&] { return outputs[index] == high; })) << index << " stays";
    }
  }
}

}  // namespace
}  // namespace sarnevo
