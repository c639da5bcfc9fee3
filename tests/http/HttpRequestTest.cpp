#include "http/HttpRequest.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/ScriptedServer.h"

namespace Web {
namespace {

using kolvex_test::HttpReplies;
using sarnevo::u32;
using sarnevo::platform::HttpError;

std::string Body(HttpRequest& request, bool& whole, u32 block = 4096) {
  std::string body;
  std::vector<char> buffer(block);
  u32 count = 0;
  while ((whole = request.Read(buffer.data(), block, &count)) && count > 0) {
    body.append(buffer.data(), count);
  }
  return body;
}

TEST(HttpRequest, SendsThisAndNothingElse) {
  struct Case {
    const char* name;
    const char* host;
    const char* method;
    const char* path;
    bool disableQueryEscape;
    const char* userName;
    const char* password;
    const char* line;
    const char* credentials;
  };
  const std::string longPath(5000, 'w');
  const std::string longLine = "GET /" + longPath;
  const Case cases[] = {
      {"a path with a query", "127.0.0.1", "GET", "/gpio.cgi?action=retrieve", false, "root", "pass",
       "GET /gpio.cgi?action=retrieve", "cm9vdDpwYXNz"},
      {"no leading slash", "127.0.0.1", "GET", "GetTime.cgi", false, "root", "pass", "GET /GetTime.cgi",
       "cm9vdDpwYXNz"},
      {"an empty path", "127.0.0.1", "GET", "", false, "", "", "GET /", "Og=="},
      {"null texts", "127.0.0.1", nullptr, nullptr, false, nullptr, nullptr, "GET /", "Og=="},
      {"dots and doubled slashes stay", "127.0.0.1", "GET", "//a/../b/./c", false, "u", "p", "GET //a/../b/./c",
       "dTpw"},
      {"what would break the line is escaped", "127.0.0.1", "GET", "/a b\r\nX: y\t\x7f#\"\xc3\xa9?q=<1 2>",
       false, "u", "p", "GET /a%20b%0D%0AX:%20y%09%7F%23%22%C3%A9?q=%3C1%202%3E", "dTpw"},
      {"a query left alone, but no blank and no line break", "127.0.0.1", "GET", "/a\xe9?q=<\xe9>\r\n x", true,
       "u", "p", "GET /a%E9?q=<\xe9>%0D%0A%20x", "dTpw"},
      {"escapes stay", "127.0.0.1", "GET", "/a%20b?c=%41%", false, "user", "secret", "GET /a%20b?c=%41%",
       "dXNlcjpzZWNyZXQ="},
      {"an empty query stays", "127.0.0.1", "GET", "/x?", false, "\xff\xfe", "\xfb\x01", "GET /x?", "//46+wE="},
      {"a long path", "127.0.0.1", "GET", longPath.c_str(), false, "u", "p", longLine.c_str(), "dTpw"},
  };
  setenv("http_proxy", "http://127.0.0.1:1/", 1);
  setenv("all_proxy", "http://127.0.0.1:1/", 1);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HttpReplies server([](const std::string&) { return "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"; });
    HttpRequest request(c.host, server.Port(), c.userName, c.password, 5000, 16, 0);
    EXPECT_TRUE(request.Send(c.method, c.path, c.disableQueryEscape));
    EXPECT_EQ(request.GetStatusCode(), 200u);
    ASSERT_EQ(server.Heads().size(), 1u);
    EXPECT_EQ(server.Heads()[0], std::string(c.line) + " HTTP/1.1\r\nHost: " + c.host + ":" +
                                     std::to_string(server.Port()) + "\r\nAuthorization: Basic " +
                                     c.credentials +
                                     "\r\nUser-Agent: Sarnevo_HttpRequest\r\nConnection: close\r\n"
                                     "Cache-Control: no-cache\r\nPragma: no-cache\r\n\r\n");
  }
  unsetenv("http_proxy");
  unsetenv("all_proxy");
}

TEST(HttpRequest, RefusesWhatNoRequestCanBeMadeOf) {
  const std::string longHost(300, 'a');
  for (const char* const host :
       {"", "127.0.0.1:80", "127.0.0.1/", "user@127.0.0.1", "127.0.0.1 ", "a\r\nb", "[::1]", "127.0.0.1#",
        "127.0.0.1?", longHost.c_str(), static_cast<const char*>(nullptr)}) {
    HttpRequest request(host, 80, "u", "p", 5000, 16, 0);
    EXPECT_FALSE(request.Send("GET", "/", false)) << (host != nullptr ? host : "null");
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
  char byte = 0;
  EXPECT_FALSE(request.Read(&byte, 1, &count));
  EXPECT_EQ(request.GetDataAvailable(), 0u);
}

TEST(HttpRequest, TakesRepliesAsTheyCome) {
  const std::string headers = "HTTP/1.1 200 OK\r\n";
  std::string many = headers;
  while (many.size() < 300'000) {
    many += "X-Filler: " + std::string(1000, 'f') + "\r\n";
  }
  const std::string binary("\x1f\x8b\x08\x00\x00\xff", 6);
  struct Case {
    const char* name;
    std::string reply;
    bool sent;
    u32 status;
    std::string body;
    bool whole;
    HttpError error;  // behind the last operation
  };
  const Case cases[] = {
      {"a body of known length", headers + "Content-Length: 7\r\n\r\nret=200", true, 200, "ret=200", true,
       HttpError::None},
      {"a body up to the end", headers + "\r\nret=200&", true, 200, "ret=200&", true, HttpError::None},
      {"chunks",
       headers + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4;x=y\r\ndefg\r\n0\r\nX-Trailer: y\r\n\r\n",
       true, 200, "abcdefg", true, HttpError::None},
      {"chunks that break off", headers + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4\r\nde", true, 200,
       "abcde", false, HttpError::ConnectionBroken},
      {"compressed though nobody asked",
       headers + "Content-Encoding: gzip\r\nContent-Length: 6\r\n\r\n" + binary, true, 200, binary, true,
       HttpError::None},
      {"204 has no body", "HTTP/1.1 204 No Content\r\nContent-Length: 5\r\n\r\nabcde", true, 204, "", true,
       HttpError::None},
      {"wrong credentials",
       "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"c\"\r\nContent-Length: 4\r\n\r\nno!\n",
       true, 401, "no!\n", true, HttpError::None},
      {"shorter than it says", headers + "Content-Length: 10\r\n\r\nabc", true, 200, "abc", false,
       HttpError::ConnectionBroken},
      {"longer than it says", headers + "Content-Length: 3\r\n\r\nabcdefgh", true, 200, "abc", true,
       HttpError::None},
      {"two lengths", headers + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", false, 0, "", false,
       HttpError::InvalidReply},
      {"a length that overflows", headers + "Content-Length: 99999999999999999999\r\n\r\nabc", false, 0, "",
       false, HttpError::InvalidReply},
      {"HTTP/0.9", "ret=200", false, 0, "", false, HttpError::InvalidReply},
      {"nothing", "", false, 0, "", false, HttpError::ConnectionBroken},
      {"a head without its end", headers + "Content-Length: 3\r\n", false, 0, "", false,
       HttpError::ConnectionBroken},
      {"more headers than are taken", many + "\r\nabc", false, 0, "", false, HttpError::ReplyTooLarge},
      {"a redirect that leads nowhere", "HTTP/1.1 302 Found\r\nContent-Length: 2\r\n\r\nhm", true, 302, "hm",
       true, HttpError::None},
  };
  for (const Case& c : cases) {
    for (const u32 block : {1u, 4096u}) {
      SCOPED_TRACE(c.name);
      HttpReplies server([&c](const std::string&) { return c.reply; });
      HttpRequest request("127.0.0.1", server.Port(), "u", "p", 5000, 16, 0);
      EXPECT_EQ(request.Send("GET", "/", false), c.sent);
      EXPECT_EQ(request.GetStatusCode(), c.status);
      EXPECT_EQ(LastHttpError() == HttpError::LoginFailure, c.status == 401);
      if (c.sent) {
        bool whole = false;
        EXPECT_EQ(Body(request, whole, block), c.body);
        EXPECT_EQ(whole, c.whole);
      }
      EXPECT_EQ(LastHttpError(), c.error);
    }
  }
}

TEST(HttpRequest, FollowsRedirectsWithoutGivingCredentialsAway) {
  const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nhere";
  HttpReplies other([&ok](const std::string&) { return ok; });
  const std::string port = std::to_string(other.Port());
  struct Case {
    const char* name;
    std::string location;
    bool sent;
    std::size_t requests;  // at the camera
    const char* target;    // of the last request
    bool atOther;
  };
  const Case cases[] = {
      {"to an absolute path", "/new/x.cgi?a=b", true, 2, "GET /new/x.cgi?a=b ", false},
      {"to a relative path with a blank", "x y.cgi", true, 2, "GET /dir/x%20y.cgi ", false},
      {"to another port", "http://127.0.0.1:" + port + "/over?there", true, 1, "GET /over?there ", true},
      {"to another host", "http://127.0.0.2:" + port + "/", false, 1, "GET /dir/again ", false},
      {"to another host without a scheme", "//127.0.0.2:" + port + "/", false, 1, "GET /dir/again ", false},
      {"in a circle", "/dir/again", false, 11, "GET /dir/again ", false},
      {"to a file", "file:///etc/hostname", false, 1, "GET /dir/again ", false},
      {"with credentials in it", "http://a:b@127.0.0.2/", false, 1, "GET /dir/again ", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::size_t before = other.Heads().size();
    HttpReplies camera([&](const std::string& head) {
      return head.starts_with("GET /dir/again ")
                 ? "HTTP/1.1 302 Found\r\nLocation: " + c.location + "\r\nContent-Length: 5\r\n\r\nmoved"
                 : ok;
    });
    HttpRequest request("127.0.0.1", camera.Port(), "root", "pass", 5000, 16, 0);
    EXPECT_EQ(request.Send("GET", "/dir/again", false), c.sent);
    EXPECT_EQ(LastHttpError(), c.sent ? HttpError::None : HttpError::RedirectRefused);
    EXPECT_EQ(camera.Heads().size(), c.requests);
    EXPECT_EQ(other.Heads().size() - before, c.atOther ? 1u : 0u);
    const std::string last = (c.atOther ? other : camera).Heads().back();
    EXPECT_TRUE(last.starts_with(c.target)) << last;
    EXPECT_EQ(last.find("Authorization:") == last.npos, c.atOther) << last;
    bool whole = false;
    EXPECT_EQ(Body(request, whole), c.sent ? "here" : "");
  }
}

TEST(HttpRequest, StaysWithItsFirstServerAndKeepsTheStatusOfTheLastReply) {
  HttpReplies first([](const std::string& head) {
    return head.starts_with("GET /gone") ? "" : "HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n";
  });
  HttpReplies second([](const std::string&) { return "HTTP/1.1 200 OK\r\n\r\n"; });
  HttpRequest request(5000, 16, 0);
  EXPECT_STREQ(request.GetHost(), "");
  EXPECT_EQ(request.GetPort(), 80);
  EXPECT_FALSE(request.Send("GET", "/", false));
  EXPECT_TRUE(request.SetHost("127.0.0.1"));
  EXPECT_TRUE(request.SetPort(first.Port()));
  EXPECT_TRUE(request.Send("GET", "/", false));
  EXPECT_TRUE(request.SetPort(second.Port()));
  EXPECT_TRUE(request.SetUserName("new"));
  EXPECT_EQ(request.GetPort(), second.Port());
  EXPECT_FALSE(request.Send("GET", "/gone", false));
  EXPECT_EQ(request.GetStatusCode(), 403u);
  EXPECT_EQ(first.Heads().size(), 2u);
  EXPECT_NE(first.Heads().back().find("Authorization: Basic bmV3Og=="), std::string::npos);
  EXPECT_EQ(second.Heads().size(), 0u);
}

}  // namespace
}  // namespace Web
