#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "camera/CGroup1CameraProperties.h"
#include "camera/SendRequest.h"
#include "support/CgiCamera.h"
#include "support/RecordingCapabilities.h"
#include "device/CResultDef.h"

namespace sarnevo {
namespace {

using kolvex_test::CgiCamera;
using kolvex_test::CgiReplies;
using kolvex_test::Reply;

Web::HttpRequest RequestTo(const CgiCamera& camera) {
  return {"127.0.0.1", camera.Port(), "u", "p", 5000, 16, 0};
}

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
  const std::string incorrect =
      "1 sarnevo::Utils::SendRequest: incorrect response for request \"/x%20y.cgi\" from host H";
  const std::string refused =
      "1 sarnevo::Utils::SendRequest: host H sent does not process request \"/x%20y.cgi\", status code = ";
  const struct {
    const char* name;
    std::string reply;  // empty: the connection ends
    bool readBody;
    u32 expectedStatus;
    std::string body;     // with its zero
    std::string message;  // H stands for host and port; none is success
    std::vector<u32> blocks = {1, 8096};
  } cases[] = {
      {"a body with a zero byte", Reply(200, "a" + zero + "b"), true, 0, "a" + zero + "b" + zero, ""},
      {"blocks of no size, in which nothing comes", Reply(200, "ret=200"), true, 0, zero, incorrect, {0}},
      {"a body nobody wants", Reply(200, "ret=200"), false, 0, "", ""},
      {"an empty body", Reply(200, ""), true, 0, zero, incorrect},
      {"204 counts as success, but has no body", Reply(204, ""), true, 0, zero, incorrect},
      {"another success than the expected one", Reply(204, ""), false, 200, "", refused + "204"},
      {"as long as a body may be", Reply(200, std::string(1'000'000, 'x')), true, 0,
       std::string(1'000'000, 'x') + zero, ""},
      {"longer, which is no reply", Reply(200, std::string(1'000'001, 'x')), true, 0, zero, incorrect},
      {"wrong credentials", Reply(401, "no"), true, 0, "", refused + "401"},
      {"nobody answers", "", true, 0, "",
       "4 sarnevo::Utils::SendRequest: can not send request \"/x%20y.cgi\" to host H"},
  };
  for (const auto& c : cases) {
    for (const u32 block : c.blocks) {
      SCOPED_TRACE(c.name);
      CgiCamera camera(CgiReplies{{"/x%20y.cgi", c.reply}});
      Web::HttpRequest request = RequestTo(camera);
      Messages debug;
      std::vector<u8> reply = {1, 2, 3};
      EXPECT_EQ(Utils::SendRequest(&request, "/x%20y.cgi", reply, &debug, c.readBody, c.expectedStatus, block),
                c.message.empty());
      EXPECT_EQ(std::string(reply.begin(), reply.end()), c.body);
      const std::string host = "127.0.0.1:" + std::to_string(camera.Port());
      if (const std::size_t at = debug.last.find(host); at != debug.last.npos) {
        debug.last.replace(at, host.size(), "H");
      }
      EXPECT_EQ(debug.last, c.message);
    }
  }
}

// The rest is shown by the fuzz target of the replies, whose inputs are short.
TEST(Group1Properties, TakeAnAddressOfAnyLengthFromAReplyOfAnyLength) {
  const std::string network = "/network.cgi?action=retrieve";
  const std::string filler(65'600, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {Reply(200, "HWADDR0=" + filler.substr(0, 5000)), filler.substr(0, 1023)},
      {Reply(200, filler.substr(0, 65'524) + "HWADDR0=1234"), "12"},
      {Reply(200, filler.substr(0, 65'527) + "HWADDR0=1"), ""},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nHWADD\r\n9\r\nR0=00:11&\r\n0\r\n\r\n",
       "0011"},
      {"HTTP/1.1 302 Found\r\nLocation: /channel.cgi?action=retrieve&ch_id=all\r\n\r\n", ""},
  };
  for (const auto& [reply, mac] : cases) {
    SCOPED_TRACE(reply.substr(0, 99));
    CgiReplies replies = kolvex_test::Group1Replies();
    replies[network] = reply;
    const CgiCamera camera(replies);
    Web::HttpRequest request = RequestTo(camera);
    CGroup1CameraProperties properties(0);
    u32 level = 77;
    EXPECT_EQ(properties.ReadProperties(&request, &properties, &level), !mac.empty());
    EXPECT_EQ(level, 3U);
    EXPECT_TRUE(camera.Targets().starts_with(
        "/comport.cgi?action=retrieve\n/multimedia.cgi?action=retrieve\n/gpio.cgi?action=retrieve\n"
        "/channel.cgi?action=retrieve&ch_id=all\n" +
        network + "\n"));
    kolvex_test::RecordingCapabilities host;
    EXPECT_TRUE(properties.PublishCapabilities(&host, 0, &request));
    EXPECT_TRUE(host.Transcript().ends_with("; value " + mac)) << host.Transcript();
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
