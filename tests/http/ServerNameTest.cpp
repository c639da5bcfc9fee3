// Servers that are given by name. The system's resolver is the test's: it knows some names, and may take its time.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include <netdb.h>
#include <netinet/in.h>

#include "http/HttpRequest.h"
#include "platform/Clock.h"
#include "platform/Event.h"
#include "support/CgiCamera.h"
#include "support/Eventually.h"

namespace Web {
namespace {

using namespace std::chrono_literals;
using kolvex_test::CgiCamera;
using kolvex_test::Eventually;
using sarnevo::u32;
using sarnevo::platform::Event;
using sarnevo::platform::MonotonicTime;

Event asked(false, false);
Event mayAnswer(false, true);
std::atomic<int> inside{0};
std::atomic<bool> hasMask{true};

addrinfo* Entry(const char* dotted, addrinfo* next) {
  auto* const entry = new addrinfo{};
  auto* const address = new sockaddr_in{};
  address->sin_family = AF_INET;
  address->sin_addr.s_addr = dotted[0] == '2' ? htonl(0x7F000002) : htonl(0x7F000001);
  entry->ai_family = AF_INET;
  entry->ai_addr = reinterpret_cast<sockaddr*>(address);
  entry->ai_addrlen = sizeof(*address);
  entry->ai_next = next;
  return entry;
}

}  // namespace
}  // namespace Web

extern "C" int getaddrinfo(const char* name, const char*, const addrinfo*, addrinfo** found) {
  using namespace Web;
  ++inside;
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  hasMask = hasMask && sigismember(&mask, SIGALRM) == 1 && sigismember(&mask, SIGTERM) == 1;
  asked.Set();
  if (std::strcmp(name, "slow") == 0) {
    mayAnswer.Wait();
  }
  *found = std::strcmp(name, "unknown") == 0 ? nullptr : Entry("2", Entry("1", nullptr));
  --inside;
  return *found != nullptr ? 0 : EAI_NONAME;
}

extern "C" void freeaddrinfo(addrinfo* list) {
  while (list != nullptr) {
    addrinfo* const next = list->ai_next;
    delete reinterpret_cast<sockaddr_in*>(list->ai_addr);
    delete list;
    list = next;
  }
}

namespace Web {
namespace {

TEST(ServerName, LeadsToTheFirstOfItsAddressesThatAnswers) {
  CgiCamera server(kolvex_test::Reply(200, ""));
  HttpRequest request("two", server.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_TRUE(request.Send("GET", "/", false));
  ASSERT_EQ(server.heads.Lines().size(), 1U);
  EXPECT_NE(server.heads.Lines()[0].find("\r\nHost: two:"), std::string::npos);
  HttpRequest unknown("unknown", server.Port(), "u", "p", 60'000, 16, 0);
  EXPECT_FALSE(unknown.Send("GET", "/", false));
  EXPECT_EQ(LastHttpError(), HttpError::NameNotResolved);
  EXPECT_TRUE(hasMask) << "the resolver's thread would take the host's signals";
}

// However long the resolver takes: the request is over in time, and its object may be gone.
TEST(ServerName, ThatTakesTooLongIsNotWaitedFor) {
  enum class End { TimeOut, Limit, Cancel };
  for (const End end : {End::TimeOut, End::Limit, End::Cancel}) {
    HttpRequest request("slow", 80, "u", "p", end == End::TimeOut ? 200 : 60'000, 16, 0);
    request.SetTimeLimit(end == End::Limit ? 200 : 0);
    while (asked.Wait(0ms)) {
    }
    const auto began = MonotonicTime();
    std::thread owner([&] {
      EXPECT_FALSE(request.Send("GET", "/", false));
      EXPECT_EQ(LastHttpError(), end == End::Cancel ? HttpError::Cancelled : HttpError::TimedOut);
    });
    EXPECT_TRUE(asked.Wait(60s));
    if (end == End::Cancel) {
      request.Cancel();
    }
    owner.join();
    EXPECT_LT(MonotonicTime() - began, 40s);
  }
  EXPECT_EQ(inside, 3);
  mayAnswer.Set();
  EXPECT_TRUE(Eventually([] { return inside == 0; }));
}

}  // namespace
}  // namespace Web
