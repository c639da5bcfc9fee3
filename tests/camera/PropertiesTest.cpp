#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "camera/CGroup1CameraProperties.h"
#include "camera/CGroup2CameraProperties.h"
#include "support/RecordingCapabilities.h"
#include "support/CgiCamera.h"

namespace sarnevo {
namespace {

using kolvex_test::CgiCamera;
using kolvex_test::CgiReplies;
using kolvex_test::Group1Replies;
using kolvex_test::Group2Replies;
using kolvex_test::Reply;

const std::string kComport = "/comport.cgi?action=retrieve";
const std::string kMultimedia = "/multimedia.cgi?action=retrieve";
const std::string kGpio = "/gpio.cgi?action=retrieve";
const std::string kChannel = "/channel.cgi?action=retrieve&ch_id=all";
const std::string kNetwork = "/network.cgi?action=retrieve";

struct Outcome {
  bool read = false;
  u32 level = 0;
  std::string facts;  // "ptz audio in out channels mac" for group 1, the model for group 2
};

std::string SettingNine(const std::string& transcript) {
  const std::size_t pos = transcript.find("; value ", transcript.find("setting 9:"));
  return pos == transcript.npos ? "" : transcript.substr(pos + 8);
}

template <typename Properties>
Outcome Read(const CgiCamera& camera) {
  Web::HttpRequest request("127.0.0.1", camera.Port(), "u", "p", 5000, 16, 0);
  Properties properties(0);
  Outcome outcome;
  outcome.level = 77;
  outcome.read = properties.ReadProperties(&request, &properties, &outcome.level);
  if constexpr (std::is_same_v<Properties, CGroup1CameraProperties>) {
    kolvex_test::RecordingCapabilities host;
    EXPECT_TRUE(properties.PublishCapabilities(&host, 0, &request));
    outcome.facts = std::to_string(properties.HasPTZ()) + " " + std::to_string(properties.HasAudio()) + " " +
                    std::to_string(properties.GetInputCount()) + " " +
                    std::to_string(properties.GetOutputCount()) + " " +
                    std::to_string(properties.GetChannelCount()) + " " + SettingNine(host.Transcript());
  } else {
    outcome.facts = properties.GetModel();
  }
  return outcome;
}

TEST(Group1Properties, TakeWhatTheRepliesHold) {
  const std::string mac = "001122aaBBcc";
  const std::string filler(65'600, 'x');
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  struct Case {
    const char* name;
    std::string path;
    std::string reply;
    bool read;
    u32 level;
    std::string facts;
  };
  const Case cases[] = {
      {"one that overflows", kComport, Reply(200, "serial_device=4294967296"), true, 3, "1 1 2 1 1 " + mac},
      {"a key without its separator in the last byte", kMultimedia, Reply(200, "x=1&aformat"), true, 3,
       "1 0 2 1 1 " + mac},
      {"words counted wherever they stand", kGpio, Reply(200, "gpiogpio gpi0 relay=gpio-relay"), true, 3,
       "1 1 3 2 1 " + mac},
      {"words behind a zero byte", kGpio, Reply(200, std::string("gpio1=0\0gpio2=0relay", 20)), true, 3,
       "1 1 1 0 1 " + mac},
      {"channels whatever they are", kChannel, Reply(200, "ch_id=0&ch_id=1"), true, 3, "1 1 2 1 1 " + mac},
      {"a broken body", kNetwork, "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nHWADDR0=00:11:22&", true, 3,
       "1 1 2 1 1 001122"},
      {"chunks", kNetwork, chunked + "5\r\nHWADD\r\n9\r\nR0=00:11&\r\n0\r\n\r\n", true, 3, "1 1 2 1 1 0011"},
      {"redirected", kNetwork, "HTTP/1.1 302 Found\r\nLocation: " + kChannel + "\r\n\r\n", false, 3,
       "1 1 2 1 1 "},
      {"a value of 5,000 bytes", kNetwork, Reply(200, "HWADDR0=" + filler.substr(0, 5000)), true, 3,
       "1 1 2 1 1 " + filler.substr(0, 1023)},
      {"a value that the buffer's end cuts off", kNetwork,
       Reply(200, filler.substr(0, 65'524) + "HWADDR0=1234"), true, 3, "1 1 2 1 1 12"},
      {"a key that doesn't fit any more", kNetwork, Reply(200, filler.substr(0, 65'527) + "HWADDR0=1"), false,
       3, "1 1 2 1 1 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CgiReplies replies = Group1Replies();
    replies[c.path] = c.reply;
    const CgiCamera camera(replies);
    const Outcome outcome = Read<CGroup1CameraProperties>(camera);
    EXPECT_EQ(outcome.read, c.read);
    EXPECT_EQ(outcome.level, c.level);
    EXPECT_EQ(outcome.facts, c.facts);
    if (c.name != std::string("redirected")) {
      EXPECT_EQ(camera.Targets(),
                kComport + "\n" + kMultimedia + "\n" + kGpio + "\n" + kChannel + "\n" + kNetwork + "\n");
    }
  }
}

TEST(Group2Properties, GoByTheNumberOfTheModel) {
  const std::string filler(65'600, 'x');
  const auto type = [](const std::string& number) { return Reply(200, "CameraType=" + number); };
  struct Case {
    const char* name;
    std::string reply;
    bool read;
    u32 level;
    std::string model;
  };
  const Case cases[] = {
      {"marked up", Reply(200, "<html>CameraType=81<br></html>"), true, 3, "Kolvex P-410"},
      {"the number in the last byte", type("68"), true, 3, "Kolvex P-405M"},
      {"the low 8 bits count", type("337"), true, 3, "Kolvex P-410"},
      {"one that overflows", type("4294967377"), false, 3, ""},
      {"no number", type("P-410"), false, 3, ""},
      {"a key behind a zero byte", Reply(200, std::string("x\0CameraType=81", 15)), false, 3, ""},
      {"a value that the buffer's end cuts off", Reply(200, filler.substr(0, 65'521) + "CameraType=810"), true,
       3, "Kolvex P-410"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const CgiCamera camera(CgiReplies{{"/GetMAC.cgi", Reply(200, "")}, {"/GetCameraType.cgi", c.reply}});
    const Outcome outcome = Read<CGroup2CameraProperties>(camera);
    EXPECT_EQ(outcome.read, c.read);
    EXPECT_EQ(outcome.level, c.level);
    EXPECT_EQ(outcome.facts, c.model);
    EXPECT_EQ(camera.Targets(), "/GetMAC.cgi\n/GetCameraType.cgi\n");
  }
}

}  // namespace
}  // namespace sarnevo
