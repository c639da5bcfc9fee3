#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "camera/CGroup1CameraProperties.h"
#include "camera/CGroup2CameraProperties.h"
#include "camera/DetectCameraGroup.h"
#include "camera/SendRequest.h"
#include "support/CgiCamera.h"
#include "support/RecordingCapabilities.h"
#include "xml/CResultDef.h"

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
  const std::string incorrect = "1 F: incorrect response for request \"/x%20y.cgi\" from host H";
  const std::string refused = "1 F: host H sent does not process request \"/x%20y.cgi\", status code = ";
  const struct {
    const char* name;
    std::string reply;  // empty: the connection ends
    bool readBody;
    u32 expectedStatus;
    std::string body;     // with its zero
    std::string message;  // F stands for the function's name, H for host and port; none is success
  } cases[] = {
      {"a body with a zero byte", Reply(200, "a" + zero + "b"), true, 0, "a" + zero + "b" + zero, ""},
      {"a body nobody wants", Reply(200, "ret=200"), false, 0, "", ""},
      {"an empty body", Reply(200, ""), true, 0, zero, incorrect},
      {"204 counts as success, but has no body", Reply(204, ""), true, 0, zero, incorrect},
      {"another success than the expected one", Reply(204, ""), false, 200, "", refused + "204"},
      {"wrong credentials", Reply(401, "no"), true, 0, "", refused + "401"},
      {"nobody answers", "", true, 0, "", "4 F: can not send request \"/x%20y.cgi\" to host H"},
  };
  for (const auto& c : cases) {
    for (const u32 block : {1u, 8096u}) {
      SCOPED_TRACE(c.name);
      CgiCamera camera(CgiReplies{{"/x%20y.cgi", c.reply}});
      Web::HttpRequest request = RequestTo(camera);
      Messages debug;
      std::vector<u8> reply = {1, 2, 3};
      EXPECT_EQ(Utils::SendRequest(&request, "/x%20y.cgi", reply, &debug, c.readBody, c.expectedStatus, block),
                c.message.empty());
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
  std::string hostile(500'000, 'r');
  while (hostile.size() < 1'000'000) {
    hostile += "ret&retret";
  }
  const struct {
    const char* name;
    std::string time;  // empty: the first request tells
    u32 group;
  } cases[] = {
      {"group 2 at once", "", 2},
      {"group 1 in capitals, over several lines",
       Reply(200, "RET=200\r\nMethod=GET SERVERTIME=07:08\nServerDate=x\r\n"), 1},
      {"a key missing", Reply(200, "ret=200&method=get&servertime=1"), 0},
      {"a key behind a zero byte",
       Reply(200, std::string("ret=200&method=get&servertime=1\0&serverdate=2", 45)), 0},
      {"wrong credentials", Reply(401, keys), 0},
      {"a hostile reply, in time", Reply(200, hostile), 0},
  };
  for (const auto& c : cases) {
    const CgiCamera camera(CgiReplies{{"/GetTime.cgi", Reply(c.time.empty() ? 200 : 404, "")},
                                      {"/time.cgi?action=retrieve", c.time}});
    Web::HttpRequest request = RequestTo(camera);
    EXPECT_EQ(DetectCameraGroup(&request), c.group) << c.name;
    EXPECT_EQ(camera.Targets(), c.group == 2 ? "/GetTime.cgi\n" : "/GetTime.cgi\n/time.cgi?action=retrieve\n")
        << c.name;
  }
}

TEST(Group1Properties, TakeWhatTheRepliesHold) {
  const std::string comport = "/comport.cgi?action=retrieve", multimedia = "/multimedia.cgi?action=retrieve",
                    gpio = "/gpio.cgi?action=retrieve", channel = "/channel.cgi?action=retrieve&ch_id=all",
                    network = "/network.cgi?action=retrieve", mac = "001122aaBBcc";
  const std::string filler(65'600, 'x');
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  using Facts = std::array<u32, 5>;  // PTZ, audio, inputs, outputs, channels
  constexpr Facts kUsual{1, 1, 2, 1, 1};
  const struct {
    const char* name;
    std::string path;
    std::string reply;
    Facts facts;
    std::string mac;  // without one nothing is read
  } cases[] = {
      {"one that overflows", comport, Reply(200, "serial_device=4294967296"), kUsual, mac},
      {"a key without its separator in the last byte",
       multimedia,
       Reply(200, "x=1&aformat"),
       {1, 0, 2, 1, 1},
       mac},
      {"words counted wherever they stand",
       gpio,
       Reply(200, "gpiogpio gpi0 relay=gpio-relay"),
       {1, 1, 3, 2, 1},
       mac},
      {"words behind a zero byte",
       gpio,
       Reply(200, std::string("gpio1=0\0gpio2=0relay", 20)),
       {1, 1, 1, 0, 1},
       mac},
      {"channels whatever they are", channel, Reply(200, "ch_id=0&ch_id=1"), kUsual, mac},
      {"a broken body", network, "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nHWADDR0=00:11:22&", kUsual,
       "001122"},
      {"chunks", network, chunked + "5\r\nHWADD\r\n9\r\nR0=00:11&\r\n0\r\n\r\n", kUsual, "0011"},
      {"redirected", network, "HTTP/1.1 302 Found\r\nLocation: " + channel + "\r\n\r\n", kUsual, ""},
      {"a value of 5,000 bytes", network, Reply(200, "HWADDR0=" + filler.substr(0, 5000)), kUsual,
       filler.substr(0, 1023)},
      {"a value that the buffer's end cuts off", network, Reply(200, filler.substr(0, 65'524) + "HWADDR0=1234"),
       kUsual, "12"},
      {"a key that doesn't fit any more", network, Reply(200, filler.substr(0, 65'527) + "HWADDR0=1"), kUsual,
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CgiReplies replies = kolvex_test::Group1Replies();
    replies[c.path] = c.reply;
    const CgiCamera camera(replies);
    Web::HttpRequest request = RequestTo(camera);
    CGroup1CameraProperties properties(0);
    u32 level = 77;
    EXPECT_EQ(properties.ReadProperties(&request, &properties, &level), !c.mac.empty());
    EXPECT_EQ(level, 3U);
    EXPECT_TRUE(camera.Targets().starts_with(comport + "\n" + multimedia + "\n" + gpio + "\n" + channel + "\n" +
                                             network + "\n"));
    kolvex_test::RecordingCapabilities host;
    EXPECT_TRUE(properties.PublishCapabilities(&host, 0, &request));
    EXPECT_EQ((Facts{properties.HasPTZ(), properties.HasAudio(), properties.GetInputCount(),
                     properties.GetOutputCount(), properties.GetChannelCount()}),
              c.facts);
    EXPECT_TRUE(host.Transcript().ends_with("; value " + c.mac)) << host.Transcript();
  }
}

TEST(Group2Properties, GoByTheNumberOfTheModel) {
  const auto type = [](const std::string& number) { return Reply(200, "CameraType=" + number); };
  const std::pair<std::string, const char*> cases[] = {
      {Reply(200, "<html>CameraType=81<br></html>"), "Kolvex P-410"},
      {type("68"), "Kolvex P-405M"},
      {type("337"), "Kolvex P-410"},  // the low 8 bits count
      {type("4294967377"), ""},
      {type("P-410"), ""},
      {Reply(200, std::string("x\0CameraType=81", 15)), ""},
      {Reply(200, std::string(65'521, 'x') + "CameraType=810"), "Kolvex P-410"},  // cut off by the buffer's end
  };
  for (const auto& [reply, model] : cases) {
    SCOPED_TRACE(reply.substr(0, 99));
    const CgiCamera camera(CgiReplies{{"/GetMAC.cgi", Reply(200, "")}, {"/GetCameraType.cgi", reply}});
    Web::HttpRequest request = RequestTo(camera);
    CGroup2CameraProperties properties(0);
    u32 level = 77;
    EXPECT_EQ(properties.ReadProperties(&request, &properties, &level), *model != '\0');
    EXPECT_EQ(level, 3U);
    EXPECT_EQ(properties.GetModel(), model);
    EXPECT_EQ(camera.Targets(), "/GetMAC.cgi\n/GetCameraType.cgi\n");
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
