#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "io/CKolvexGroup1DigitalIO.h"
#include "io/CKolvexGroup2DigitalIO.h"
#include "io/FakeHost.h"
#include "platform/Clock.h"
#include "support/ScriptedServer.h"
#include "support/Eventually.h"
#include "support/StopSlack.h"

namespace sarnevo {
namespace {

using kolvex_test::Eventually;
using kolvex_test::HttpReplies;
using kolvex_test::kStopSlack;
using kolvex_test::ScriptedServer;
constexpr u32 kPollMs = 5;

std::string Reply(const std::string& body, const std::string& status = "200 OK") {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string RequestLine(const std::string& head) { return head.substr(0, head.find("\r\n")); }

struct Fixture : IOHost {
  Fixture(int group, u16 port, u32 inputs, u32 outputs, u32 stopTimeoutMs = CIOBase::kStopTimeoutMs,
          std::function<void()> inCallback = {})
      : IOHost(Camera(inputs, outputs, port), std::move(inCallback)) {
    if (group == 1) {
      io = std::make_unique<CKolvexGroup1DigitalIO>(&driver, kPollMs, stopTimeoutMs);
    } else {
      io = std::make_unique<CKolvexGroup2DigitalIO>(&driver, kPollMs, stopTimeoutMs);
    }
    io->SetCallback(&callback);
  }

  std::unique_ptr<CIOBase> io;
};

void AwaitCount(const HttpReplies& camera, std::size_t count) {
  EXPECT_TRUE(Eventually([&] { return camera.Heads().size() >= count; }))
      << camera.Heads().size() << " requests";
}

TEST(GroupDigitalIO, SendsOutputsInTheWordsOfItsGroup) {
  for (const int group : {1, 2}) {
    HttpReplies camera([](const std::string&) { return Reply(""); });
    Fixture f(group, camera.Port(), 0, 2);
    ASSERT_TRUE(f.io->Start());
    f.io->SetOutput(1, IOStateHigh);
    f.io->SetOutput(0, 7);  // anything but low is high
    AwaitCount(camera, 4);
    EXPECT_TRUE(f.io->Stop());
    std::string lines;
    for (const std::string& head : camera.Heads()) {
      lines += RequestLine(head) + "\n";
      EXPECT_THAT(head, ::testing::HasSubstr("\r\nAuthorization: Basic dXNlcjpzZWNyZXQ=\r\n"));
    }
    EXPECT_EQ(lines, group == 1 ? "GET /gpio.cgi?action=apply&relayid=1&value=0 HTTP/1.1\n"
                                  "GET /gpio.cgi?action=apply&relayid=2&value=0 HTTP/1.1\n"
                                  "GET /gpio.cgi?action=apply&relayid=2&value=1 HTTP/1.1\n"
                                  "GET /gpio.cgi?action=apply&relayid=1&value=1 HTTP/1.1\n"
                                : "GET /SetGPIO.cgi?Out1STA=0 HTTP/1.1\nGET /SetGPIO.cgi?Out2STA=0 HTTP/1.1\n"
                                  "GET /SetGPIO.cgi?Out2STA=1 HTTP/1.1\nGET /SetGPIO.cgi?Out1STA=1 HTTP/1.1\n");
    EXPECT_EQ(f.log.Text(), "");
  }
}

TEST(GroupDigitalIO, ReadsInputsFromReplies) {
  const std::string kBoth = "input 0 is 1\ninput 1 is 2\n";
  struct {
    const char* name;
    int group;
    std::string reply;
    std::string expected;
  } const cases[] = {
      {"in order, marked up", 2, Reply("<html>Input1_Sensor=0<br>Input2_Sensor=1</html>"), kBoth},
      {"any order", 1, Reply("gpio2=1&gpio1=0"), kBoth},
      {"doubled: the first counts", 2, Reply("Input2_Sensor=1<>Input1_Sensor=0<>Input1_Sensor=1"), kBoth},
      {"a zero anywhere is low", 1, Reply("gpio1=10&gpio2=1"), kBoth},
      {"a missing key is high", 1, Reply("gpio1=0"), kBoth},
      {"an upper-case key is no key", 1, Reply("gpio1=0&GPIO2=0"), kBoth},
      {"input 12 isn't input 2", 1, Reply("gpio1=0&gpio12=0"), kBoth},
      {"nothing counts behind a zero byte", 1, Reply(std::string("gpio1=0&\0gpio2=0", 16)), kBoth},
      {"no keys: all high", 2, Reply("nothing to say"), "input 0 is 2\ninput 1 is 2\n"},
      {"large", 1, Reply("gpio1=0&gpio2=1&" + std::string(10'000'000, 'x')), kBoth},
      {"without a body", 2, "HTTP/1.1 204 No Content\r\n\r\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HttpReplies camera([&](const std::string&) { return c.reply; });
    Fixture f(c.group, camera.Port(), 2, 0);
    ASSERT_TRUE(f.io->Start());
    AwaitCount(camera, 2);
    EXPECT_TRUE(f.io->Stop());
    EXPECT_EQ(f.log.Text(), c.expected);
    EXPECT_EQ(RequestLine(camera.Heads().front()),
              c.group == 1 ? "GET /gpio.cgi?action=retrieve HTTP/1.1" : "GET /GetGPIO.cgi HTTP/1.1");
  }
}

// Every third poll meets a connection that the camera has closed; none of them fails.
TEST(GroupDigitalIO, KeepsTheConnectionOfTheInputsUntilTheStop) {
  std::atomic<int> polls{0};
  std::atomic<std::size_t> open{0};
  ScriptedServer camera([&](ScriptedServer::Connection& connection) {
    ++open;
    for (int i = 0; i < 3 && !connection.ReadHead().empty(); ++i) {
      connection.Send(Reply("gpio1=" + std::to_string(++polls % 2)));
    }
    --open;
  });
  Fixture f(1, camera.Port(), 1, 0);
  ASSERT_TRUE(f.io->Start());
  std::string expected;
  for (int i = 0; i < 12; ++i) {
    expected += "input 0 is " + std::to_string(i % 2 == 0 ? IOStateHigh : IOStateLow) + "\n";
  }
  EXPECT_TRUE(Eventually([&] { return f.log.Text().starts_with(expected); })) << f.log.Text();
  EXPECT_TRUE(f.io->Stop());
  EXPECT_TRUE(Eventually([&] { return open == 0; })) << "the stopped poller holds its connection";
  EXPECT_EQ(f.log.Text().find("failure"), std::string::npos);
  EXPECT_LE(camera.Count(), static_cast<std::size_t>(polls) / 3 + 2);
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
    std::atomic<int> requests{0};
    ScriptedServer camera([&](Connection& connection) {
      connection.ReadHead();
      ++requests;
      script(connection);
    });
    Fixture f(1, camera.Port(), 2, 1, kStopTimeout);
    u64 best = ~u64{0};  // a busy machine may spoil one
    for (int attempt = 0; attempt < 5 && best > 2 * (kStopTimeout + kStopSlack); ++attempt) {
      requests = 0;
      ASSERT_TRUE(f.io->Start());
      EXPECT_TRUE(Eventually([&] { return requests == 2; })) << requests << " requests";
      const u64 begin = platform::MonotonicMilliseconds();
      EXPECT_TRUE(f.io->Stop());
      best = std::min(best, platform::MonotonicMilliseconds() - begin);
    }
    EXPECT_LE(best, 2 * (kStopTimeout + kStopSlack));
    EXPECT_THAT(f.log.Text(), ::testing::Not(::testing::HasSubstr("input")));
  }
}

// 10,000 random operations from four threads, and more from inside the callbacks, with a camera that refuses,
// ends the connection, or falls silent and is cut off by a stop. An output counts from the moment at which the
// camera has its request, whatever becomes of the reply.
TEST(GroupDigitalIO, KeepsStepWithACameraThatComesAndGoes) {
  constexpr u32 kOutputs = 3;
  enum Mood : u32 { Sound, Refuses, Ends, TakesAndEnds, Silent, kMoods };
  for (const int group : {1, 2}) {
    std::atomic<u32> mood{Sound};
    std::array<std::atomic<u32>, kOutputs + 1> outputs{};  // from 1
    std::atomic<std::size_t> served{0};
    ScriptedServer camera([&](ScriptedServer::Connection& connection) {
      const std::string head = connection.ReadHead();
      const u32 now = mood;
      u32 number = 0, value = 0;
      const char* const words =
          group == 1 ? "GET /gpio.cgi?action=apply&relayid=%u&value=%u " : "GET /SetGPIO.cgi?Out%uSTA=%u ";
      const bool sets = std::sscanf(head.c_str(), words, &number, &value) == 2;
      if (sets && (now == Sound || now == TakesAndEnds)) {
        outputs.at(number) = value == 0 ? IOStateLow : IOStateHigh;
      }
      if (now == Silent) {
        connection.WaitForEnd();
      } else if (now == Sound) {
        connection.Send(Reply("gpio1=0&<>Input1_Sensor=0<>"));
      } else if (now == Refuses) {
        connection.Send(Reply("", "503 Busy"));
      }
      ++served;
    });
    const auto operate = [](CIOBase& io, u32 kind, u32 number) {
      if (kind == 0) {
        io.Start();
      } else if (kind == 1) {
        io.Stop();
      } else {
        io.SetOutput(number % (kOutputs + 1), IOStateLow + number / 4 % 2);
      }
    };
    std::atomic<CIOBase*> operated{nullptr};
    std::atomic<u32> callbacks{0};
    Fixture f(group, camera.Port(), 1, kOutputs, 20, [&] {
      if (CIOBase* const io = operated; io != nullptr) {
        const u32 number = ++callbacks;
        operate(*io, number % 7, number);
      }
    });
    operated = f.io.get();
    std::vector<std::thread> hosts;
    for (u32 seed = 0; seed < 4; ++seed) {
      hosts.emplace_back([&, random = std::mt19937(seed)]() mutable {
        for (int i = 0; i < 2500; ++i) {
          const u32 number = static_cast<u32>(random());
          if (number % 16 == 15) {
            mood = number / 16 % 8 == 0 ? number / 128 % kMoods : u32{Sound};
          } else {
            operate(*f.io, number % 16, number / 16);
          }
        }
      });
    }
    for (auto& host : hosts) {
      host.join();
    }
    operated = nullptr;
    mood = Sound;
    // What a stop has cut off may still be on its way into the camera, in front of this request.
    f.io->Stop();
    Web::HttpRequest last("127.0.0.1", camera.Port(), "", "", 10'000, 16, 0);
    EXPECT_TRUE(last.Send("GET", "/", false));
    EXPECT_TRUE(Eventually([&] { return served == camera.Count(); }));

    // What is remembered of each output is what the camera has: setting it to anything else reaches it.
    EXPECT_TRUE(f.io->Stop());
    EXPECT_TRUE(f.io->Start());
    for (u32 index = 0; index < kOutputs; ++index) {
      EXPECT_TRUE(Eventually([&] { return outputs[index + 1] == IOStateLow; })) << index;
      for (const u32 wanted : {IOStateHigh, IOStateLow, IOStateHigh}) {
        EXPECT_TRUE(f.io->SetOutput(index, wanted));
        EXPECT_TRUE(Eventually([&] { return outputs[index + 1] == wanted; })) << index << " stays";
      }
    }
  }
}

}  // namespace
}  // namespace sarnevo
