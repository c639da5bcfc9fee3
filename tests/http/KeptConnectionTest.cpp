#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "http/HttpRequest.h"
#include "platform/Event.h"
#include "support/Eventually.h"
#include "support/HostLog.h"
#include "support/ScriptedServer.h"

namespace Web {
namespace {

using namespace std::chrono_literals;
using kolvex_test::Eventually;
using kolvex_test::HostLog;
using kolvex_test::ScriptedServer;
using sarnevo::u32;
using sarnevo::platform::Event;
using Connection = ScriptedServer::Connection;

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

struct KeptRequest : HttpRequest {
  explicit KeptRequest(const ScriptedServer& server, u32 timeout = 5000, const char* host = "127.0.0.1")
      : HttpRequest(host, server.Port(), "u", "p", timeout, 16, 0) {
    KeepConnection(true);
  }
};

std::string ReadAll(HttpRequest& request) {
  std::string body;
  char buffer[16];
  u32 count = 0;
  while (request.Read(buffer, sizeof(buffer), &count) && count > 0) {
    body.append(buffer, count);
  }
  return body;
}

TEST(KeptConnection, IsUsedAgainAfterAWholeReplyUnlessTheServerEndsIt) {
  struct Case {
    const char* name;
    std::string reply;
    std::vector<std::size_t> connections;  // of each request
    std::string body = "ok";
    bool read = true;       // to its end
    bool ask = true;        // to keep it
    bool end = false;       // the server closes after its reply, each time or
    bool endAsked = false;  // where it is asked to
    std::string method = "GET";
  };
  const std::string close = "\r\nConnection: close\r\n";
  const std::string head = "HTTP/1.1 200 OK\r\n";
  const std::string longText(99'999, 'x');
  const std::string longBody = head + "Content-Length: 99999\r\n\r\n" + longText;
  const std::string two = "Content-Length: 2\r\n\r\nok";
  const std::string noBody = "HTTP/1.1 204 No Content\r\n" + two.substr(0, two.size() - 2);
  std::string interim;
  for (int i = 0; i < 3000; ++i) {
    interim += "HTTP/1.1 100 Continue\r\n\r\n";
  }
  const std::string chunks = head + "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0";
  const Case cases[] = {
      {"HTTP/1.1", kOk, {0, 0}},
      {"a body larger than all buffers", longBody, {0, 0}, longText},
      {"chunks", chunks + "\r\nX: y\r\n\r\n", {0, 0}},
      {"no body, whatever its length", noBody, {0, 0}, ""},
      {"after an interim reply", "HTTP/1.1 100 Continue\r\nX: y\r\n\r\n" + kOk, {0, 0}},
      {"nobody asked", kOk, {0, 1}, "ok", true, false},
      {"the server's word", head + "Connection: close\r\n" + two, {0, 1}},
      {"the server's word in a list", head + "Connection: x,\tClose \r\n" + two, {0, 1}},
      {"a word that only begins so", head + "Connection: closed\r\n" + two, {0, 0}},
      {"HTTP/1.0", "HTTP/1.0 200 OK\r\n" + two, {0, 1}},
      {"HTTP/1.0 that keeps it", "HTTP/1.0 200 OK\r\nConnection: x, Keep-Alive\r\n" + two, {0, 0}},
      {"a coding before the chunks",
       head + "Transfer-Encoding: x, chunked" + chunks.substr(chunks.find("\r\n\r\n2")) + "\r\n\r\n",
       {0, 0}},
      {"the server's end", head + "\r\nok", {0, 1}, "ok", true, true, true},
      {"no end", head + "\r\nok", {0, 1}, "ok", true, true, false, true},
      {"half of it read", head + "Content-Length: 3\r\n\r\nok", {0, 1}, "", false},
      {"more than the reply", kOk + "HTTP/1.1 500 No\r\n\r\n", {0, 1}},
      {"a head larger than most", head + "X: " + longText + "\r\n" + two, {0, 0}},
      {"its length twice", head + "Content-Length: 2\r\n" + two, {0, 0}},
      {"interim replies by the thousand", interim + kOk, {0, 0}},
      {"a head alone", head + two.substr(0, two.size() - 2), {0, 0}, "", true, true, false, false, "HEAD"},
      {"what can't be asked twice", kOk, {0, 1}, "ok", true, true, false, false, "PUT"},
      {"a length and chunks, which may mean anything",
       head + "Content-Length: 2\r\n" + chunks.substr(head.size()) + "\r\n\r\n",
       {0, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> heads;
    std::vector<std::size_t> connections;
    std::mutex lock;
    ScriptedServer server([&](Connection& connection) {
      for (std::string asked; !(asked = connection.ReadHead()).empty();) {
        {
          const std::lock_guard guard(lock);
          heads.push_back(asked);
          connections.push_back(connection.Number());
        }
        connection.Send(c.reply);
        if (c.end || (c.endAsked && asked.find(close) != asked.npos)) {
          return;
        }
      }
    });
    KeptRequest request(server, c.endAsked ? 2000 : 60'000);
    request.KeepConnection(c.ask);
    for (const char* const path : {"/1", "/2"}) {
      ASSERT_TRUE(request.Send(c.method.c_str(), path, false));
      if (c.read) {
        EXPECT_EQ(ReadAll(request), c.body);
      }
    }
    const std::lock_guard guard(lock);
    const auto requestFor = [&](const std::string& path, bool closes) {
      return c.method + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
             "\r\nAuthorization: Basic dTpw\r\nUser-Agent: Sarnevo_HttpRequest" + (closes ? close : "\r\n") +
             "Cache-Control: no-cache\r\nPragma: no-cache\r\n\r\n";
    };
    EXPECT_EQ(heads, std::vector({requestFor(" /1", !c.ask), requestFor(" /2", !c.ask || c.endAsked)}));
    EXPECT_EQ(connections, c.connections);
  }
}

// What the camera does to a kept connection instead of a second reply on it.
TEST(KeptConnection, OneThatTheCameraLetGoOfCostsNoReply) {
  enum class Away { BeforeTheRequest, WithTheRequest, HalfAReply, Silent };
  struct Case {
    const char* name;
    Away away;
    bool always;  // new connections end without a reply too
    bool sent;
    HttpError error;
    std::size_t connections;
  };
  const Case cases[] = {
      {"closed while idle", Away::BeforeTheRequest, false, true, HttpError::None, 2},
      {"closed when the request comes", Away::WithTheRequest, false, true, HttpError::None, 2},
      {"a new connection without a reply is the end", Away::WithTheRequest, true, false,
       HttpError::ConnectionBroken, 2},
      {"half a reply is one", Away::HalfAReply, false, false, HttpError::ConnectionBroken, 1},
      {"silence is no end", Away::Silent, false, false, HttpError::TimedOut, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::atomic<std::size_t> requests{0};
    Event firstIsOver(false, true);
    ScriptedServer server([&](Connection& connection) {
      connection.ReadHead();
      ++requests;
      if (connection.Number() > 0) {
        connection.Send(c.always ? "" : kOk);
        return;
      }
      connection.Send(kOk);
      if (c.away == Away::BeforeTheRequest) {
        connection.Shutdown();
        firstIsOver.Set();
        return;
      }
      firstIsOver.Set();
      connection.ReadHead();
      ++requests;
      if (c.away == Away::HalfAReply) {
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n");
      } else if (c.away == Away::Silent) {
        connection.WaitForEnd();
      }
    });
    KeptRequest request(server, c.away == Away::Silent ? 2000 : 60'000);
    ASSERT_TRUE(request.Send("GET", "/1", false));
    EXPECT_EQ(ReadAll(request), "ok");
    ASSERT_TRUE(firstIsOver.Wait(60s));
    EXPECT_EQ(request.Send("GET", "/2", false), c.sent);
    EXPECT_EQ(LastHttpError(), c.error);
    EXPECT_EQ(ReadAll(request), c.sent ? "ok" : "");
    EXPECT_EQ(server.Count(), c.connections);
    EXPECT_EQ(requests, c.away == Away::BeforeTheRequest ? 2u : c.connections + 1);
  }
}

class KeptConnectionTo : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Server, KeptConnectionTo, testing::Values("127.0.0.1", "localhost"));

TEST_P(KeptConnectionTo, CancelMeetsTheRequestOnItAndEndsItBetweenTwo) {
  Event waiting;
  std::atomic<std::size_t> ended{0};
  ScriptedServer server([&](Connection& connection) {
    for (std::string head; !(head = connection.ReadHead()).empty();) {
      if (head.starts_with("GET /wait ")) {
        waiting.Set();
        connection.WaitForEnd();
      }
      connection.Send(head.starts_with("GET /half ") ? kOk.substr(0, kOk.size() - 1) : kOk);
    }
    ++ended;
  });
  KeptRequest request(server, 60'000, GetParam());
  const auto good = [&] { return request.Send("GET", "/", false) && ReadAll(request) == "ok"; };
  EXPECT_TRUE(good());
  EXPECT_TRUE(good());
  EXPECT_EQ(server.Count(), 1u);
  request.Cancel();
  EXPECT_TRUE(Eventually([&] { return ended == 1; })) << "a cancelled connection stays open";
  request.Resume();
  EXPECT_TRUE(good());
  EXPECT_EQ(server.Count(), 2u);
  std::thread owner([&] {
    EXPECT_FALSE(request.Send("GET", "/wait", false));
    EXPECT_EQ(LastHttpError(), HttpError::Cancelled);
  });
  EXPECT_TRUE(waiting.Wait(60s));
  request.Cancel();
  owner.join();
  EXPECT_EQ(server.Count(), 2u) << "a cancelled request isn't repeated";
  request.Resume();
  EXPECT_TRUE(good());
  EXPECT_EQ(server.Count(), 3u);
  EXPECT_TRUE(request.Send("GET", "/half", false));
  request.Cancel();
  EXPECT_TRUE(Eventually([&] { return ended == 3; })) << "one in the middle of a reply stays open";
}

// A redirect leads to another port: after a whole reply, and in the middle of one.
TEST(KeptConnection, LeadsToItsOwnServerAloneAndEachRequestIsWrittenAnew) {
  HostLog seen;
  const auto note = [&](const std::string& server, const std::string& head) {
    const std::size_t credentials = head.find("Basic ");
    seen.Add(server + head.substr(0, head.find(" HTTP/")) + " " +
             (credentials == head.npos ? "-" : head.substr(credentials + 6, 4)));
  };
  ScriptedServer other([&](Connection& connection) {
    note("other: ", connection.ReadHead());
    connection.Send(kOk);
  });
  const std::string moved = "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:" + std::to_string(other.Port()) +
                            "/b?c\r\nContent-Length: ";
  std::atomic<int> ended{0};
  ScriptedServer server([&](Connection& connection) {
    for (std::string head; !(head = connection.ReadHead()).empty();) {
      note("", head);
      connection.Send(head.starts_with("GET /moved")  ? moved + "0\r\n\r\n"
                      : head.starts_with("GET /half") ? moved + "100\r\n\r\nmore"
                                                      : kOk);
    }
    ++ended;
  });
  KeptRequest request(server);
  const auto send = [&](const char* method, const char* path) {
    ASSERT_TRUE(request.Send(method, path, false)) << method << path;
    EXPECT_EQ(ReadAll(request), "ok");
  };
  send("GET", "/a?b");
  send("GET", "/moved");
  send("PUT", "/a");
  EXPECT_TRUE(request.SetPassword("q"));
  send("GET", "/half");
  EXPECT_TRUE(Eventually([&] { return ended == 2; })) << "one in the middle of a reply stays open";
  EXPECT_EQ(seen.Text(),
            "GET /a?b dTpw\nGET /moved dTpw\nother: GET /b?c -\nPUT /a dTpw\n"
            "GET /half dTpx\nother: GET /b?c -\n");
}

}  // namespace
}  // namespace Web
