#include "http/HttpRequest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Event.h"
#include "support/CgiCamera.h"
#include "support/Eventually.h"

namespace Web {
namespace {

using namespace std::chrono_literals;
using kolvex_test::Blackhole;
using kolvex_test::CgiCamera;
using kolvex_test::Eventually;
using kolvex_test::ScriptedServer;
using sarnevo::u16;
using sarnevo::u32;
using sarnevo::platform::Event;
using sarnevo::platform::MonotonicTime;
using Connection = ScriptedServer::Connection;

// Everything up to the end or a failure, which LastHttpError names then.
std::string Body(HttpRequest& request, u32 block = 4096) {
  std::string body;
  std::vector<char> buffer(block);
  for (u32 count = 0; request.Read(buffer.data(), block, &count) && count > 0;) {
    body.append(buffer.data(), count);
  }
  return body;
}

TEST(HttpRequest, SendsThisAndNothingElse) {
  const std::string longPath = "/" + std::string(5000, 'w');
  const struct {
    const char* path;
    bool disableQueryEscape;
    const char* userName;
    const char* password;
    const char* target;
    const char* credentials;
  } cases[] = {
      {"GetTime.cgi", false, "root", "pass", "/GetTime.cgi", "cm9vdDpwYXNz"},
      {nullptr, false, nullptr, nullptr, "/", "Og=="},
      {"//a/../b/./c", false, "u", "p", "//a/../b/./c", "dTpw"},
      {"/a b\r\nX: y\t\x7f#\"\xc3\xa9?q=<1 2>", false, "u", "p",
       "/a%20b%0D%0AX:%20y%09%7F%23%22%C3%A9?q=%3C1%202%3E", "dTpw"},
      {"/a\xe9?q=<\xe9>\r\n x", true, "u", "p", "/a%E9?q=<\xe9>%0D%0A%20x", "dTpw"},
      {"/a%20b?c=%41%", false, "user", "secret", "/a%20b?c=%41%", "dXNlcjpzZWNyZXQ="},
      {"/x?", false, "\xff\xfe", "\xfb\x01", "/x?", "//46+wE="},
      {longPath.c_str(), false, "u", "p", longPath.c_str(), "dTpw"},
  };
  setenv("http_proxy", "http://127.0.0.1:1/", 1);
  setenv("all_proxy", "http://127.0.0.1:1/", 1);
  for (const auto& c : cases) {
    CgiCamera server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    HttpRequest request("127.0.0.1", server.Port(), c.userName, c.password, 5000, 16, 0);
    EXPECT_TRUE(request.Send(c.path != nullptr ? "GET" : nullptr, c.path, c.disableQueryEscape));
    EXPECT_EQ(request.GetStatusCode(), 200u);
    EXPECT_EQ(server.heads.Lines(),
              std::vector{std::string("GET ") + c.target + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                          std::to_string(server.Port()) + "\r\nAuthorization: Basic " + c.credentials +
                          "\r\nUser-Agent: Sarnevo_HttpRequest\r\nConnection: close\r\n"
                          "Cache-Control: no-cache\r\nPragma: no-cache\r\n\r\n"});
  }
  unsetenv("http_proxy");
  unsetenv("all_proxy");
}

TEST(HttpRequest, RefusesWhatNoRequestCanBeMadeOf) {
  const std::string longHost(300, 'a');
  for (const char* const host : {"", "127.0.0.1:80", "127.0.0.1/", "user@127.0.0.1", "127.0.0.1 ", "a\r\nb",
                                 "[::1]", "127.0.0.1#", "127.0.0.1?", longHost.c_str()}) {
    HttpRequest request(host, 80, "u", "p", 5000, 16, 0);
    EXPECT_FALSE(request.Send("GET", "/", false)) << host;
    EXPECT_EQ(LastHttpError(), HttpError::InvalidRequest);
  }
  HttpRequest request("127.0.0.1", 80, "u", "p", 5000, 16, 0);
  for (const char* const method : {"GET /x HTTP/1.1\r\nX:", "G T", "G\r\n"}) {
    EXPECT_FALSE(request.Send(method, "/", false)) << method;
    EXPECT_EQ(LastHttpError(), HttpError::InvalidRequest);
  }
  u32 count = 7;
  EXPECT_FALSE(request.Read(nullptr, 10, &count));
  EXPECT_EQ(count, 0u);
}

// What else is a reply and what isn't is in the corpus of the fuzz target (fuzz/corpus/HttpReplies).
TEST(HttpRequest, TakesRepliesAsTheyCome) {
  const std::string headers = "HTTP/1.1 200 OK\r\n";
  const auto filledTo = [&headers](std::size_t size) {
    std::string head = headers + "Content-Length: 1\r\n";
    while (head.size() < size - 2000) {
      head += "X-Filler: " + std::string(1000, 'f') + "\r\n";
    }
    head += "X-Filler: ";
    return head + std::string(size - 4 - head.size(), 'f') + "\r\n\r\n";
  };
  const std::string binary("\x1f\x8b\x08\0\0\xff", 6);
  const std::string zipped = headers + "Content-Encoding: gzip\r\nContent-Length: 6\r\n\r\n" + binary;
  const struct {
    const char* name;
    std::string reply;
    u32 status;  // 0: none, Send fails
    std::string body;
    HttpError error;  // after the last operation
  } cases[] = {
      {"a body up to the end", headers + "\r\nret=200&", 200, "ret=200&", HttpError::None},
      {"compressed though nobody asked", zipped, 200, binary, HttpError::None},
      {"wrong credentials",
       "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"c\"\r\nContent-Length: 4\r\n\r\nno!\n", 401, "no!\n",
       HttpError::None},
      {"shorter than it says", headers + "Content-Length: 10\r\n\r\nabc", 200, "abc",
       HttpError::ConnectionBroken},
      {"another coding and a length", headers + "Transfer-Encoding: gzip\r\nContent-Length: 1\r\n\r\nabc", 200,
       "abc", HttpError::None},
      {"a coding without a name and a length", headers + "Transfer-Encoding:\r\nContent-Length: 3\r\n\r\nabcd",
       200, "abc", HttpError::None},
      {"a chunk that isn't as long as it says",
       headers + "Transfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n0\r\n\r\n", 200, "ab", HttpError::InvalidReply},
      {"two lengths", headers + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", 0, "",
       HttpError::InvalidReply},
      {"as many headers as are taken", filledTo(262'144) + "x", 200, "x", HttpError::None},
      {"more headers than are taken", filledTo(262'145) + "x", 0, "", HttpError::ReplyTooLarge},
  };
  for (const auto& c : cases) {
    for (const u32 block : {1u, 4096u}) {
      SCOPED_TRACE(c.name);
      CgiCamera server(c.reply);
      HttpRequest request("127.0.0.1", server.Port(), "u", "p", 5000, 16, 0);
      EXPECT_EQ(request.Send("GET", "/", false), c.status != 0);
      EXPECT_EQ(request.GetStatusCode(), c.status);
      EXPECT_EQ(LastHttpError() == HttpError::LoginFailure, c.status == 401);
      if (c.status != 0) {
        EXPECT_EQ(Body(request, block), c.body);
      }
      EXPECT_EQ(LastHttpError(), c.error);
    }
  }
}

TEST(HttpRequest, FollowsRedirectsWithoutGivingCredentialsAway) {
  const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nhere";
  CgiCamera other(ok);
  const std::string port = std::to_string(other.Port());
  const struct {
    const char* name;
    std::string location;
    std::size_t requests;  // at the camera
    const char* target;    // of the last request; null when the redirect is refused
    bool atOther;
    const char* host = "127.0.0.1";
  } cases[] = {
      {"to an absolute path", "/new/x.cgi?a=b", 2, "GET /new/x.cgi?a=b ", false},
      {"to a relative path with a blank", "x y.cgi", 2, "GET /dir/x%20y.cgi ", false},
      {"to another port", "http://127.0.0.1:" + port + "/over?there", 1, "GET /over?there ", true},
      {"to a port of the same name", "http://LocalHost:" + port + "/over?there", 1, "GET /over?there ", true,
       "localhost"},
      {"to another host", "http://127.0.0.2:" + port + "/", 1, nullptr, false},
      {"to another host without a scheme", "//127.0.0.2:" + port + "/", 1, nullptr, false},
      {"in a circle", "/dir/again", 11, nullptr, false},
      {"to a file", "file:///etc/hostname", 1, nullptr, false},
      {"to another scheme", "https://127.0.0.1:" + port + "/", 1, nullptr, false},
      {"with credentials in it", "http://a:b@127.0.0.2/", 1, nullptr, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::size_t before = other.heads.Lines().size();
    CgiCamera camera([&](Connection& connection, const std::string& head) {
      const std::string moved =
          "HTTP/1.1 302 Found\r\nLocation: " + c.location + "\r\nContent-Length: 5\r\n\r\nmoved";
      connection.Send(head.starts_with("GET /dir/again ") ? moved : ok);
    });
    HttpRequest request(c.host, camera.Port(), "root", "pass", 5000, 16, 0);
    EXPECT_EQ(request.Send("GET", "/dir/again", false), c.target != nullptr);
    EXPECT_EQ(LastHttpError(), c.target != nullptr ? HttpError::None : HttpError::RedirectRefused);
    EXPECT_EQ(camera.heads.Lines().size(), c.requests);
    EXPECT_EQ(other.heads.Lines().size() - before, c.atOther ? 1u : 0u);
    const std::string last = (c.atOther ? other : camera).heads.Lines().back();
    EXPECT_TRUE(last.starts_with(c.target != nullptr ? c.target : "GET /dir/again ")) << last;
    EXPECT_EQ(last.find("Authorization:") == last.npos, c.atOther) << last;
    EXPECT_EQ(Body(request), c.target != nullptr ? "here" : "");
  }
}

TEST(HttpRequest, StaysWithItsFirstServerAndKeepsTheStatusOfTheLastReply) {
  CgiCamera first({{"/", kolvex_test::Reply(403, "")}, {"/gone", ""}});
  CgiCamera second(kolvex_test::Reply(200, ""));
  HttpRequest request(5000, 16, 0);
  EXPECT_EQ(request.GetHost() + std::to_string(request.GetPort()), "80");
  EXPECT_FALSE(request.Send("GET", "/", false));
  EXPECT_TRUE(request.SetHost("127.0.0.1") && request.SetPort(first.Port()));
  EXPECT_TRUE(request.Send("GET", "/", false));
  EXPECT_TRUE(request.SetPort(second.Port()) && request.SetUserName("new"));
  EXPECT_FALSE(request.Send("PUT", "/gone", false));
  EXPECT_EQ(request.GetStatusCode(), 403u);
  EXPECT_EQ(first.heads.Lines().size(), 2u);
  EXPECT_NE(first.heads.Lines().back().find("Authorization: Basic bmV3Og=="), std::string::npos);
  EXPECT_EQ(second.heads.Lines().size(), 0u);
}

const std::string kReply =
    "HTTP/1.1 200 OK\r\nServer: c\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n";
const std::size_t kHead = kReply.find("\r\n\r\n") + 4;

TEST(HttpTiming, ADrippingReplyDoesNotTimeOutUnlessARequestHasALimit) {
  ScriptedServer server([](Connection& connection) {
    connection.ReadHead();
    connection.Drip(kReply, 30ms);
  });
  for (const u32 limit : {0u, 300u}) {
    HttpRequest request("127.0.0.1", server.Port(), "u", "p", 2000, 16, 0);
    request.SetTimeLimit(limit);
    const auto began = MonotonicTime();
    EXPECT_EQ(request.Send("GET", "/", false) ? Body(request) : "", limit == 0 ? "abcde" : "");
    EXPECT_EQ(LastHttpError(), limit == 0 ? HttpError::None : HttpError::TimedOut);
    EXPECT_GE(MonotonicTime() - began, limit == 0 ? 2300ms : 300ms);  // beyond the time-out
  }
}

// By how much of a reply comes before the silence, and what of its body Read gives before it waits.
TEST(HttpTiming, CancelEndsWhateverTheOwnersThreadWaitsFor) {
  const Blackhole blackhole;
  const std::pair<std::size_t, std::string> places[] = {
      {0, ""}, {5, ""}, {kHead, ""}, {kReply.find("c\r\n2"), "ab"}, {kReply.find("de"), "abc"}};
  for (const auto& [come, body] : places) {
    const bool sends = come < kHead;
    ScriptedServer camera([come = come](Connection& connection) {
      connection.ReadHead();
      connection.Send(std::string_view(kReply).substr(0, come));
      connection.WaitForEnd();
    });
    for (const bool second : {false, true}) {
      SCOPED_TRACE(std::to_string(come) + (!second ? "" : sends ? ", no connection" : ", looks only"));
      const u16 port = sends && second ? blackhole.Port() : camera.Port();
      HttpRequest request("127.0.0.1", port, "u", "p", 60'000, 16, 0);
      char bytes[16];
      u32 count = 0;
      if (!sends) {
        ASSERT_TRUE(request.Send("GET", "/", false));
        for (std::size_t got = 0; got < body.size(); got += count) {
          ASSERT_TRUE(request.Read(bytes, sizeof(bytes), &count));
        }
      }
      Event ended;
      std::thread owner([&] {
        EXPECT_FALSE(sends    ? request.Send("GET", "/", false)
                     : second ? request.GetDataAvailable() != 0
                              : request.Read(bytes, sizeof(bytes), &count));
        EXPECT_EQ(LastHttpError(), HttpError::Cancelled);
        ended.Set();
      });
      EXPECT_FALSE(ended.Wait(50ms)) << "the operation doesn't wait";
      request.Cancel();
      EXPECT_TRUE(ended.Wait(60s)) << "the operation goes on";
      owner.join();
      EXPECT_FALSE(request.Read(bytes, sizeof(bytes), &count));
      EXPECT_EQ(request.GetDataAvailable(), 0u);
    }
  }
}

TEST(HttpTiming, WhatIsBrokenOffHoldsNoDescriptor) {
  const auto count = [] {
    using std::filesystem::directory_iterator;
    return std::distance(directory_iterator("/proc/self/fd"), directory_iterator());
  };
  const Blackhole blackhole;
  CgiCamera camera("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nabc");
  const auto before = count();
  HttpRequest late("127.0.0.1", blackhole.Port(), "u", "p", 100, 16, 0);
  EXPECT_FALSE(late.Send("GET", "/", false));
  EXPECT_EQ(LastHttpError(), HttpError::TimedOut);
  EXPECT_EQ(count(), before);
  HttpRequest unread("127.0.0.1", camera.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_TRUE(unread.Send("GET", "/", false));
  EXPECT_GT(count(), before);
  unread.Cancel();
  EXPECT_TRUE(Eventually([&] { return count() == before; }));
}

TEST(HttpTiming, CancelLastsUntilResumeAndWhatItClosedIsOutOfReach) {
  CgiCamera camera(kolvex_test::Reply(200, "abc"));
  HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_EQ(request.GetDataAvailable(), 0u);
  EXPECT_EQ(LastHttpError(), HttpError::Cancelled) << "nothing was sent";
  EXPECT_TRUE(request.Send("GET", "/1", false));
  EXPECT_EQ(request.GetDataAvailable(), 3u);
  request.Cancel();
  EXPECT_EQ(request.GetDataAvailable(), 0u);
  EXPECT_FALSE(request.Send("GET", "/2", false));
  EXPECT_FALSE(request.Send("GET", "/3", false));
  EXPECT_EQ(LastHttpError(), HttpError::Cancelled);
  request.Resume();
  EXPECT_EQ(request.GetDataAvailable(), 0u);
  EXPECT_EQ(LastHttpError(), HttpError::Cancelled);
  EXPECT_TRUE(request.Send("GET", "/4", false));
  EXPECT_EQ(Body(request), "abc");
  EXPECT_EQ(camera.Targets(), "/1\n/4\n");
}

}  // namespace
}  // namespace Web
