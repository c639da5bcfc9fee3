#include "http/HttpRequest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "platform/Clock.h"
#include "platform/Event.h"
#include "platform/SecureErase.h"
#include "support/ScriptedServer.h"

namespace Web {
namespace {

using namespace std::chrono_literals;
using kolvex_test::Blackhole;
using kolvex_test::ScriptedServer;
using sarnevo::u16;
using sarnevo::u32;
using sarnevo::platform::Event;
using sarnevo::platform::HttpError;
using sarnevo::platform::MonotonicMilliseconds;
using sarnevo::platform::WaitResult;
using Connection = ScriptedServer::Connection;

const std::string kReply =
    "HTTP/1.1 200 OK\r\nServer: c\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n";
const std::size_t kHead = kReply.find("\r\n\r\n") + 4;

// Everything up to the end or a failure.
std::string ReadAll(HttpRequest& request, bool& whole) {
  std::string body;
  char buffer[512];
  u32 count = 0;
  while ((whole = request.Read(buffer, sizeof(buffer), &count)) && count > 0) {
    body.append(buffer, count);
  }
  return body;
}

TEST(HttpTiming, AReplyCutAnywhereGivesWhatCameAndNeverHangs) {
  for (const bool reset : {false, true}) {
    for (std::size_t cut = 0; cut <= kReply.size(); ++cut) {
      SCOPED_TRACE(kReply.substr(0, cut));
      ScriptedServer server([cut, reset](Connection& connection) {
        connection.ReadHead();
        connection.Send(std::string_view(kReply).substr(0, cut));
        if (reset) {
          connection.Reset();
        }
      });
      HttpRequest request("127.0.0.1", server.Port(), "u", "p", 10'000, 16, 0);
      const bool sent = request.Send("GET", "/", false);
      bool whole = false;
      const std::string body = sent ? ReadAll(request, whole) : "";
      if (!reset) {
        EXPECT_EQ(sent, cut >= kHead);
        EXPECT_EQ(whole, cut + 1 >= kReply.size());  // the last line's LF tells nothing new
      }
      EXPECT_TRUE(std::string("abcde").starts_with(body)) << body;  // a reset may overtake what was sent
      EXPECT_TRUE(!whole || body == "abcde") << body;
    }
  }
}

TEST(HttpTiming, ADrippingReplyDoesNotTimeOutUnlessARequestHasALimit) {
  ScriptedServer server([](Connection& connection) {
    connection.ReadHead();
    connection.Drip(kReply, 15ms);
  });
  for (const u32 limit : {0u, 300u}) {
    HttpRequest request("127.0.0.1", server.Port(), "u", "p", 700, 16, 0);
    request.SetTimeLimit(limit);
    const auto began = MonotonicMilliseconds();
    bool whole = false;
    const bool sent = request.Send("GET", "/", false);
    const std::string body = sent ? ReadAll(request, whole) : "";
    EXPECT_EQ(whole, limit == 0);
    EXPECT_EQ(body, limit == 0 ? "abcde" : "");
    EXPECT_EQ(LastHttpError(), limit == 0 ? HttpError::None : HttpError::TimedOut);
    if (limit == 0) {
      EXPECT_GT(MonotonicMilliseconds() - began, 1000u);  // far beyond the time-out
    } else {
      EXPECT_GE(MonotonicMilliseconds() - began, limit);
    }
  }
}

// Where a camera falls silent, and where a thread can be caught by Cancel.
struct Place {
  const char* name;
  std::size_t bytes;  // of the reply that come before the silence
  bool head;          // Send gives true
  const char* body;   // what Read gives before it waits
};
const Place kPlaces[] = {
    {"before the first byte", 0, false, ""},
    {"in the status line", 5, false, ""},
    {"behind the head", kHead, true, ""},
    {"in the body", kReply.find("c\r\n2"), true, "ab"},
    {"between two chunks", kReply.find("de"), true, "abc"},
};

class Silence {
 public:
  explicit Silence(const Place& place)
      : server_([this, &place](Connection& connection) {
          connection.ReadHead();
          connection.Send(std::string_view(kReply).substr(0, place.bytes));
          silent.Set();
          connection.WaitForEnd();
        }) {}
  u16 Port() const { return server_.Port(); }
  Event silent;

 private:
  ScriptedServer server_;
};

TEST(HttpTiming, NobodyThereFailsAtOnceOrWithinTheTimeOut) {
  const Blackhole blackhole;
  u16 closed = 0;
  {
    closed = ScriptedServer([](Connection&) {}).Port();
  }
  struct Case {
    const char* name;
    const char* host;
    u16 port;
    HttpError error;
    HttpError orElse;
  };
  const Case cases[] = {
      {"refused", "127.0.0.1", closed, HttpError::CannotConnect, HttpError::CannotConnect},
      {"port 0 means 80", "127.0.0.1", 0, HttpError::CannotConnect, HttpError::CannotConnect},
      {"no answer", "127.0.0.1", blackhole.Port(), HttpError::TimedOut, HttpError::TimedOut},
      {"no such name", "no-such-camera.invalid", 80, HttpError::NameNotResolved, HttpError::TimedOut},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HttpRequest request(c.host, c.port, "u", "p", 300, 16, 0);
    const auto began = MonotonicMilliseconds();
    EXPECT_FALSE(request.Send("GET", "/", false));
    EXPECT_TRUE(LastHttpError() == c.error || LastHttpError() == c.orElse) << static_cast<int>(LastHttpError());
    EXPECT_LT(MonotonicMilliseconds() - began, 5000u);
  }
}

// Runs an operation on a thread and cancels it once it stands.
bool FailsWhenCancelled(HttpRequest& request, const std::function<bool()>& operation,
                        void (HttpRequest::*cancel)() noexcept = &HttpRequest::Cancel) {
  std::atomic<bool> result{true};
  std::atomic<HttpError> error{HttpError::None};
  Event ended;
  std::thread owner([&] {
    result = operation();
    error = LastHttpError();
    ended.Set();
  });
  // Long enough that no timer of the transfer's beginning is left to end the wait in the cancel's place.
  EXPECT_EQ(ended.Wait(250ms), WaitResult::TimedOut) << "the operation doesn't wait";
  (request.*cancel)();
  EXPECT_EQ(ended.Wait(10s), WaitResult::Signalled) << "the operation goes on";
  owner.join();
  EXPECT_EQ(error, HttpError::Cancelled);
  return !result;
}

TEST(HttpTiming, CancelEndsWhateverTheOwnersThreadWaitsFor) {
  for (const Place& place : kPlaces) {
    for (const bool lookOnly : {false, true}) {
      if (lookOnly && !place.head) {
        continue;
      }
      SCOPED_TRACE(place.name);
      Silence camera(place);
      HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 60'000, 16, 0);
      char bytes[16];
      u32 count = 0;
      if (place.head) {
        ASSERT_TRUE(request.Send("GET", "/", false));
        for (std::size_t got = 0; got < std::string(place.body).size(); got += count) {
          ASSERT_TRUE(request.Read(bytes, sizeof(bytes), &count));
        }
      }
      EXPECT_TRUE(FailsWhenCancelled(request, [&] {
        return !place.head ? request.Send("GET", "/", false)
               : lookOnly  ? request.GetDataAvailable() != 0
                           : request.Read(bytes, sizeof(bytes), &count);
      }));
      EXPECT_FALSE(request.Read(bytes, sizeof(bytes), &count));
      EXPECT_EQ(request.GetDataAvailable(), 0u);
    }
  }
  const Blackhole blackhole;
  HttpRequest request("127.0.0.1", blackhole.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_TRUE(FailsWhenCancelled(request, [&] { return request.Send("GET", "/", false); }));
}

TEST(HttpTiming, CancelLastsUntilTheNextSendAndAbortUntilResume) {
  kolvex_test::HttpReplies camera(
      [](const std::string&) { return "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc"; });
  HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 60'000, 16, 0);
  request.Cancel();
  EXPECT_TRUE(request.Send("GET", "/1", false));
  EXPECT_EQ(request.GetDataAvailable(), 3u);
  request.Cancel();
  EXPECT_EQ(request.GetDataAvailable(), 0u) << "what had come already is out of reach too";
  EXPECT_TRUE(request.Send("GET", "/2", false));
  bool whole = false;
  EXPECT_EQ(ReadAll(request, whole), "abc");
  request.Abort();
  EXPECT_FALSE(request.Send("GET", "/3", false));
  EXPECT_FALSE(request.Send("GET", "/4", false));
  EXPECT_EQ(LastHttpError(), HttpError::Cancelled);
  request.Resume();
  EXPECT_TRUE(request.Send("GET", "/5", false));
  EXPECT_EQ(camera.Heads().size(), 3u);

  Silence silent(kPlaces[1]);
  HttpRequest waiting("127.0.0.1", silent.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_TRUE(FailsWhenCancelled(
      waiting, [&] { return waiting.Send("GET", "/", false); }, &HttpRequest::Abort));
}

TEST(SecureErase, LeavesNoCharacterBehind) {
  std::string secret(64, 's');
  const char* const place = secret.data();
  sarnevo::platform::SecureErase(secret);
  EXPECT_TRUE(secret.empty());
  EXPECT_EQ(std::string(place, 64), std::string(64, '\0'));
}

}  // namespace
}  // namespace Web
