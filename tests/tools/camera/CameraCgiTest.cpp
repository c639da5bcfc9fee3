#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"

namespace {

using namespace simcam;
using namespace simcam_test;

struct Row {
  const char* target;
  const char* reply;  // a POSIX regular expression for the whole body
};

void ExpectReplies(const CameraSettings& settings, std::initializer_list<Row> rows) {
  CameraFarm farm;
  farm.Add(settings);
  for (const Row& row : rows) {
    const std::string body = BodyOf(Get(settings.address, row.target));
    EXPECT_THAT(body, testing::MatchesRegex(row.reply)) << settings.model << row.target;
  }
}

TEST(CameraCgi, AnswersGroup1QueriesInEachShape) {
  CameraSettings settings{.group = Group::One, .model = "P-426", .address = "127.0.1.1"};
  settings.hardwareAddress = "00:11:22:33:44:55";
  ExpectReplies(settings,
                {{"/time.cgi?action=retrieve",
                  "ret=200&method=get&servertime=[0-9]{2}:[0-9]{2}:[0-9]{2}&serverdate=[0-9]{4}/[0-9]{2}/"
                  "[0-9]{2}&timezone=UTC\r\n"},
                 {"/comport.cgi?action=retrieve", "ret=200&method=get&port=2&serial_device=2&.*\r\n"},
                 {"/multimedia.cgi?action=retrieve", "ret=200&.*&aformat=g711u\r\n"},
                 {"/gpio.cgi?action=retrieve",
                  "ret=200&method=get&gpio1=0&gpio2=0&gpio3=0&gpio4=0&relay1=0&relay2=0\r\n"},
                 {"/channel.cgi?action=retrieve&ch_id=all", "ret=200&method=get&ch_id=0&.*\r\n"},
                 {"/network.cgi?action=retrieve", "ret=200&method=get&HWADDR0=00:11:22:33:44:55&.*\r\n"},
                 {"/GetTime.cgi", "Not found\r\n"}});
  settings.model = "P-1401";
  settings.shape = ReplyShape::Lines;
  ExpectReplies(settings, {{"/comport.cgi?action=retrieve",
                            "ret=200\r\nmethod=get\r\nport=2\r\nserial_device=0\r\n[^&]*"},
                           {"/multimedia.cgi?action=retrieve", "[^&]*\r\ngopsize=25\r\n"},
                           {"/gpio.cgi?action=retrieve", "ret=200&method=get\r\n"}});
  settings.model = "P-463";
  settings.shape = ReplyShape::Markup;
  ExpectReplies(settings,
                {{"/comport.cgi?action=retrieve",
                  "<html><body>\r\nret=200&<br>\r\n.*\r\nserial_device=1&<br>\r\n.*</body></html>\r\n"},
                 {"/gpio.cgi?action=retrieve", ".*\r\ngpio2=0&<br>\r\nrelay1=0&<br>\r\n.*"},
                 {"/multimedia.cgi?action=apply&resolution=d1", "ret=200&.*"}});
}

TEST(CameraCgi, TellsTheTypeOfEachGroup2Model) {
  struct Type {
    const char* model;
    const char* plain;
  };
  for (const Type& type :
       {Type{"P-405", "71"}, {"P-405M", "68"}, {"P-410", "81"}, {"P-412", "67"}, {"P-499", "99"}}) {
    CameraSettings settings{.group = Group::Two, .model = type.model, .address = "127.0.2.1"};
    const std::string number = std::string("CameraType=") + type.plain;
    ExpectReplies(settings, {{"/GetCameraType.cgi", ("<html><body>\r\n" + number + "<br>\r\n.*").c_str()},
                             {"/GetMAC.cgi", ".*MAC=00:4B:7F:00:02:01<br>.*"},
                             {"/GetTime.cgi", ".*Date=.*"},
                             {"/time.cgi?action=retrieve", "Not found\r\n"}});
    settings.shape = ReplyShape::Lines;
    ExpectReplies(settings, {{"/GetCameraType.cgi", (number + "\r\nFirmware=V2.03\r\n").c_str()}});
  }
}

TEST(CameraCgi, ObeysConfigurationsAndRefusesNonsense) {
  CameraFarm farm;
  SimulatedCamera& one = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  SimulatedCamera& two = farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  struct Change {
    SimulatedCamera& camera;
    const char* target;
    const char* format;
    unsigned refused;
  };
  const Change changes[] = {
      {one,
       "/multimedia.cgi?action=apply&tv_standard=NTSC&resolution=d1&targetrate=2000&fps=30&gopsize=30"
       "&peakrate=3000&const_qu=0&mode=mpeg4&sequence=ip",
       "mpeg4 720x480 30 fps", 0},
      {one, "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=qcif&const_qu=9", "mpeg4 176x144 25 fps",
       0},
      {one, "/multimedia.cgi?action=apply&resolution=sxga", "mpeg4 176x144 25 fps", 1},
      {one, "/multimedia.cgi?action=apply&mode=h264", "mpeg4 176x144 25 fps", 2},
      {two,
       "/SetMultimedia.cgi?CH=0&Resolution=sxga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=4&Stream_Mode=0&"
       "Audio=1",
       "mjpeg 1280x1024 10 fps", 0},
      {two, "/SetMultimedia.cgi?CH=0&Fps=5&Format=NTSC&Mode=mjpeg&Jpeg_Quality=6", "mjpeg 1280x1024 10 fps", 1},
      {two, "/SetMultimedia.cgi?CH=0&Resolution=cif&Fps=30&Format=NTSC&Mode=mpeg4&Bitrate=576&GOPSelect=1",
       "mpeg4 352x240 30 fps", 1},
  };
  for (const Change& change : changes) {
    Get(change.camera.Status().address, change.target);
    EXPECT_EQ(change.camera.Status().format, change.format) << change.target;
    EXPECT_EQ(change.camera.Status().counters.badRequests, change.refused) << change.target;
  }
}

TEST(CameraCgi, ReadsAndSwitchesPins) {
  CameraFarm farm;
  SimulatedCamera& one = farm.Add({.group = Group::One, .model = "P-423", .address = "127.0.1.1"});
  SimulatedCamera& two = farm.Add({.group = Group::Two, .address = "127.0.2.1", .inputs = 2, .outputs = 2});
  EXPECT_EQ(one.Control("input2=1"), "");
  EXPECT_EQ(two.Control("input1=toggle"), "");
  EXPECT_EQ(BodyOf(Get("127.0.1.1", "/gpio.cgi?action=apply&relayid=1&value=1")), "ret=200&method=apply\r\n");
  EXPECT_EQ(BodyOf(Get("127.0.1.1", "/gpio.cgi?action=apply&relayid=2&value=1")), "ret=400&method=apply\r\n");
  EXPECT_EQ(BodyOf(Get("127.0.2.1", "/SetGPIO.cgi?Out2STA=1")), "OK\r\n");
  struct Style {
    const char* style;
    const char* one;
    const char* two;
  };
  const Style styles[] = {
      {"normal", "ret=200&method=get&gpio1=0&gpio2=1&relay1=1\r\n",
       "Input1_Sensor=1<br>\r\nInput2_Sensor=0<br>\r\nOut1STA=0<br>\r\nOut2STA=1<br>\r\n"},
      {"reversed", "relay1=1&gpio2=1&gpio1=0&method=get&ret=200\r\n",
       "Out2STA=1<br>\r\nOut1STA=0<br>\r\nInput2_Sensor=0<br>\r\nInput1_Sensor=1<br>\r\n"},
      {"missing", "ret=200&method=get&gpio1=0&gpio2=1\r\n",
       "Input1_Sensor=1<br>\r\nInput2_Sensor=0<br>\r\nOut1STA=0<br>\r\n"},
      {"upper", "RET=200&METHOD=get&GPIO1=0&GPIO2=1&RELAY1=1\r\n",
       "INPUT1_SENSOR=1<br>\r\nINPUT2_SENSOR=0<br>\r\nOUT1STA=0<br>\r\nOUT2STA=1<br>\r\n"},
  };
  for (const Style& style : styles) {
    one.Control(std::string("pins=") + style.style);
    two.Control(std::string("pins=") + style.style);
    EXPECT_EQ(BodyOf(Get("127.0.1.1", "/gpio.cgi?action=retrieve")), style.one);
    EXPECT_EQ(BodyOf(Get("127.0.2.1", "/GetGPIO.cgi")),
              std::string("<html><body>\r\n") + style.two + "</body></html>\r\n");
  }
  EXPECT_EQ(two.Control("input-script=0/1=0;20/2=1"), "");
  EXPECT_TRUE(two.WaitUntil([](const CameraStatus& s) { return !s.inputs[0] && s.inputs[1]; },
                            std::chrono::seconds(5)));
  for (const char* nonsense :
       {"input3=1", "input1=2", "input-script=5/3=1", "input-script=5/1=1;4/1=0", "pins=odd"}) {
    EXPECT_NE(two.Control(nonsense), "") << nonsense;
  }
}

TEST(CameraCgi, LetsInOnlyWhoKnowsThePassword) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  const std::string challenge = "\r\nWWW-Authenticate: Basic realm=\"Kolvex\"\r\n";
  for (const char* wrong : {"", "Basic YWRtaW46d3Jvbmc=", "Digest YWRtaW46a29sdmV4"}) {
    const std::string reply = Get("127.0.1.1", "/time.cgi?action=retrieve", wrong);
    EXPECT_TRUE(reply.starts_with("HTTP/1.1 401 Unauthorized\r\n")) << reply;
    EXPECT_NE(reply.find(challenge), std::string::npos) << reply;
  }
  EXPECT_EQ(camera.Status().counters.authFailures, 3U);
  EXPECT_TRUE(Get("127.0.1.1", "/time.cgi?action=retrieve").starts_with("HTTP/1.1 200"));
}

}  // namespace
