#include "camera/SendRequest.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "camera/DetectCameraGroup.h"
#include "support/CgiCamera.h"
#include "xml/CResultDef.h"

namespace sarnevo {
namespace {

using kolvex_test::CgiCamera;
using kolvex_test::CgiReplies;
using kolvex_test::Reply;

class Messages : public IDebugMessage {
 public:
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override {
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    last = std::to_string(level) + " " + text;
    ++count;
  }
  std::string last;
  int count = 0;
};

TEST(SendRequest, ReportsEachFailureInItsOwnWords) {
  const std::string zero(1, '\0');
  const std::string incorrect = "1 F: incorrect response for request \"/x%20y.cgi\" from host H";
  const std::string refused = "1 F: host H sent does not process request \"/x%20y.cgi\", status code = ";
  struct Case {
    const char* name;
    std::string reply;  // empty: the connection ends
    bool readBody;
    u32 expectedStatus;
    bool result;
    std::string body;     // with its zero
    std::string message;  // F stands for the function's name, H for host and port
  };
  const Case cases[] = {
      {"a body with a zero byte", Reply(200, "a" + zero + "b"), true, 0, true, "a" + zero + "b" + zero, ""},
      {"a body nobody wants", Reply(200, "ret=200"), false, 0, true, "", ""},
      {"an empty body", Reply(200, ""), true, 0, false, zero, incorrect},
      {"204 counts as success, but has no body", Reply(204, ""), true, 0, false, zero, incorrect},
      {"another success than the expected one", Reply(204, ""), false, 200, false, "", refused + "204"},
      {"wrong credentials", Reply(401, "no"), true, 0, false, "", refused + "401"},
      {"nobody answers", "", true, 0, false, "", "4 F: can not send request \"/x%20y.cgi\" to host H"},
  };
  for (const Case& c : cases) {
    for (const u32 block : {1u, 8096u}) {
      SCOPED_TRACE(c.name);
      CgiCamera camera(CgiReplies{{"/x%20y.cgi", c.reply}});
      Web::HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 5000, 16, 0);
      Messages debug;
      std::vector<u8> reply = {1, 2, 3};
      EXPECT_EQ(Utils::SendRequest(&request, "/x%20y.cgi", reply, &debug, c.readBody, c.expectedStatus, block),
                c.result);
      EXPECT_EQ(std::string(reply.begin(), reply.end()), c.body);
      for (const auto& [text, mark] : {std::pair<std::string, const char*>{"sarnevo::Utils::SendRequest", "F"},
                                       {"127.0.0.1:" + std::to_string(camera.Port()), "H"}}) {
        if (const std::size_t pos = debug.last.find(text); pos != debug.last.npos) {
          debug.last.replace(pos, text.size(), mark);
        }
      }
      EXPECT_EQ(debug.last, c.message);
    }
  }
}

TEST(DetectCameraGroup, GoesByTheTimeRequestsAlone) {
  const std::string keys = "ret=200&method=get&servertime=1&serverdate=2";
  struct Case {
    const char* name;
    std::string getTime;
    std::string time;
    u32 group;
  };
  const Case cases[] = {
      {"group 2 at once", Reply(200, ""), Reply(200, keys), 2},
      {"group 1 in capitals, over several lines", Reply(404, ""),
       Reply(200, "RET=200\r\nMethod=GET SERVERTIME=07:08\nServerDate=x\r\n"), 1},
      {"a key missing", Reply(404, ""), Reply(200, "ret=200&method=get&servertime=1"), 0},
      {"a key behind a zero byte", Reply(404, ""),
       Reply(200, std::string("ret=200&method=get&servertime=1\0&serverdate=2", 45)), 0},
      {"wrong credentials", Reply(401, ""), Reply(401, keys), 0},
  };
  for (const Case& c : cases) {
    CgiCamera camera(CgiReplies{{"/GetTime.cgi", c.getTime}, {"/time.cgi?action=retrieve", c.time}});
    Web::HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 5000, 16, 0);
    EXPECT_EQ(DetectCameraGroup(&request), c.group) << c.name;
    EXPECT_EQ(camera.Targets(), c.group == 2 ? "/GetTime.cgi\n" : "/GetTime.cgi\n/time.cgi?action=retrieve\n")
        << c.name;
  }
}

TEST(ResultDef, ThinsOutWhatKeepsComing) {
  Messages sink;
  const CResultDef failure(1, 6, "100% of it");
  std::string passed;
  for (int call = 1; call <= 70'000; ++call) {
    const int before = sink.count;
    failure.Report(&sink, 1);
    if (sink.count > before && (call <= 300 || call >= 57'000)) {
      passed += std::to_string(call) + " ";
    }
    CResultDef(1, 6, "").Report(&sink, 1);  // neither of these counts
    failure.Report(nullptr, 1);
  }
  EXPECT_EQ(sink.last, "1 100% of it");
  // The 65,535th call takes the count back to 4,095, so that the 65,536th is on a multiple of 4,096 again.
  EXPECT_EQ(passed,
            "1 2 3 4 5 6 7 8 9 10 11 12 13 14 16 32 48 64 80 96 112 128 144 160 176 192 208 224 240 256 "
            "57344 61440 65536 69632 ");
}

}  // namespace
}  // namespace sarnevo
