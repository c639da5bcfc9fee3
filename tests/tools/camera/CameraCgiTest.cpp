#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"

namespace {

using namespace simcam;
using namespace simcam_test;

TEST(CameraCgi, AnswersQueriesInTheShapeOfEachGroupAndModel) {
  struct Row {
    Group group;
    const char* model;
    std::optional<ReplyShape> shape;
    const char* target;
    const char* reply;  // a POSIX regular expression for the whole body
  };
  constexpr auto kDefault = std::nullopt;
  const Row rows[] = {
      {Group::One, "P-426", kDefault, "/time.cgi?action=retrieve",
       "ret=200&method=get&servertime=[0-9]{2}:[0-9]{2}:[0-9]{2}&serverdate=[0-9]{4}/[0-9]{2}/[0-9]{2}"
       "&timezone=UTC\r\n"},
      {Group::One, "P-426", kDefault, "/comport.cgi?action=retrieve",
       "ret=200&method=get&port=2&serial_device=2&.*\r\n"},
      {Group::One, "P-426", kDefault, "/gpio.cgi?action=retrieve",
       "ret=200&method=get&gpio1=0&gpio2=0&gpio3=0&gpio4=0&relay1=0&relay2=0\r\n"},
      {Group::One, "P-426", kDefault, "/network.cgi?action=retrieve",
       "ret=200&method=get&HWADDR0=00:11:22:33:44:55&.*\r\n"},
      {Group::One, "P-426", kDefault, "/GetTime.cgi", "Not found\r\n"},
      {Group::One, "P-1401", ReplyShape::Lines, "/comport.cgi?action=retrieve",
       "ret=200\r\nmethod=get\r\nport=2\r\nserial_device=0\r\n[^&]*"},
      {Group::One, "P-1401", ReplyShape::Lines, "/gpio.cgi?action=retrieve", "ret=200&method=get\r\n"},
      {Group::One, "P-463", ReplyShape::Markup, "/comport.cgi?action=retrieve",
       "<html><body>\r\nret=200&<br>\r\n.*\r\nserial_device=1&<br>\r\n.*</body></html>\r\n"},
      {Group::Two, "P-405M", kDefault, "/GetCameraType.cgi", "<html><body>\r\nCameraType=68<br>\r\n.*"},
      {Group::Two, "P-410", ReplyShape::Lines, "/GetCameraType.cgi", "CameraType=81\r\nFirmware=V2.03\r\n"},
      {Group::Two, "P-410", kDefault, "/GetMAC.cgi", ".*MAC=00:11:22:33:44:55<br>.*"},
      {Group::Two, "P-410", kDefault, "/time.cgi?action=retrieve", "Not found\r\n"},
  };
  for (const Row& row : rows) {
    CameraFarm farm;
    CameraSettings settings{.group = row.group, .model = row.model, .address = "127.0.1.1"};
    settings.shape = row.shape;
    settings.hardwareAddress = "00:11:22:33:44:55";
    farm.Add(settings);
    EXPECT_THAT(BodyOf(Get("127.0.1.1", row.target)), testing::MatchesRegex(row.reply)) << row.model;
  }
}

TEST(CameraCgi, ObeysConfigurationsAndRefusesNonsense) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .address = "127.0.1.2"});
  struct Row {
    std::size_t camera;
    const char* configuration;
    const char* format;
    unsigned refused;
  };
  const Row rows[] = {
      {0, "tv_standard=NTSC&resolution=d1&fps=30&gopsize=30&mode=mpeg4", "mpeg4 720x480 30 fps", 0},
      {0, "resolution=sxga", "mpeg4 720x480 30 fps", 1},
      {1, "Resolution=sxga&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=4", "mjpeg 1280x1024 10 fps", 0},
      {1, "Fps=5&Format=NTSC&Mode=mjpeg&Jpeg_Quality=6", "mjpeg 1280x1024 10 fps", 1},
      {1, "Resolution=cif&Fps=30&Format=NTSC&Mode=mpeg4&Bitrate=576&GOPSelect=1", "mpeg4 352x240 30 fps", 1},
  };
  for (const Row& row : rows) {
    SimulatedCamera& camera = *farm.cameras()[row.camera];
    const std::string program = row.camera == 0 ? "/multimedia.cgi?action=apply&" : "/SetMultimedia.cgi?CH=0&";
    Get(camera.Status().address, program + row.configuration);
    EXPECT_EQ(camera.Status().format, row.format) << row.configuration;
    EXPECT_EQ(camera.Status().counters.badRequests, row.refused) << row.configuration;
  }
}

TEST(CameraCgi, ListsPinsInTheStyleThatIsAskedFor) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .model = "P-423", .address = "127.0.1.1"});
  ASSERT_EQ(camera.Control("input2=1"), "");
  const char* const kStyles[][2] = {{"normal", "ret=200&method=get&gpio1=0&gpio2=1&relay1=0\r\n"},
                                    {"reversed", "relay1=0&gpio2=1&gpio1=0&method=get&ret=200\r\n"},
                                    {"missing", "ret=200&method=get&gpio1=0&gpio2=1\r\n"},
                                    {"upper", "RET=200&METHOD=get&GPIO1=0&GPIO2=1&RELAY1=0\r\n"}};
  for (const auto& [style, reply] : kStyles) {
    camera.Control(std::string("pins=") + style);
    EXPECT_EQ(BodyOf(Get("127.0.1.1", "/gpio.cgi?action=retrieve")), reply);
  }
}

}  // namespace
