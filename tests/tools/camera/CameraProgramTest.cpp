#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "camera/SendRequest.h"
#include "support/Eventually.h"
#include "support/ProgramRun.h"

namespace {

using kolvex_test::Eventually;
using kolvex_test::ProgramResult;
using kolvex_test::ProgramRun;
using testing::HasSubstr;

// The status and the body that a request gets.
std::string Get(const char* address, const std::string& path, const char* password = "secret") {
  Web::HttpRequest request(address, 80, "guard", password, 60'000, 1, 0);
  std::vector<sarnevo::u8> body;
  sarnevo::Utils::SendRequest(&request, path, body, nullptr, true, 0, 4096);
  return std::to_string(request.GetStatusCode()) + " " + std::string(body.begin(), body.end());
}

TEST(CameraProgram, ExplainsWhatIsWrongAndReturnsItsCode) {
  for (const auto& [arguments, code, sentence] : {
           std::tuple("--camera group=3", 2, "\"3\" is no value for \"group\": it must be 1 or 2"),
           {"--camera colour=red", 2, "a camera has no property \"colour\"; it has group, model"},
           {"--camera group=2,model=P-400", 2, "group 2 has no model \"P-400\"; it has P-405, P-405M, P-410"},
           {"--camera resolution=vga", 2, "group 1 has no resolution \"vga\"; it has qcif, cif, d1"},
           {"--fault lose=2", 2, "the camera can't do \"lose=2\": RATE is a probability (0.05)"},
           {"--fault lost=1", 2, "the commands are lose, duplicate"},
           {"--count 0", 2, "--count takes 1 to 10000"},
           {"--seconds 0", 2, "\"0\" is no time"},
           {"--control 8099", 2, "--control takes ADDRESS:PORT, like 127.0.0.1:8099"},
           {"--password-file /nonexistent", 2, "can't read a password from /nonexistent"},
           {"--fleet foo=1", 2, "give its number of cameras with --count, 1 to 10000"},
           {"--fleet foo=1 --count 2", 2, "a camera has no property \"foo\""},
           {"--camera address=127.0.1.1 --camera address=127.0.1.1", 2, "are to listen at 127.0.1.1:80"},
           {"group=1", 2, "there is a word too many, group; there are --help, --camera"},
           {"--colour=red", 2, "there is no option --colour; there are --help, --camera"},
           {"--camera address=192.0.2.1", 1, "can't listen on 192.0.2.1:80"},
       }) {
    const ProgramResult result = ProgramRun(KOLVEX_CAMERA).Run(arguments);
    EXPECT_EQ(result.exit, code) << arguments;
    EXPECT_THAT(result.err, HasSubstr(sentence)) << arguments;
    EXPECT_TRUE(code == 1 || result.out.empty()) << "something had started";
  }
}

TEST(CameraProgram, RunsAFleetThatCanBeControlledAndHasHeadsThatTakeNoWrongFrame) {
  ProgramRun program(KOLVEX_CAMERA);
  program.Start(
      "--count 2 --first 127.1.0.255 --camera group=1,address=127.0.1.1,serial=1 "
      "--fleet group=1,serial=2,codec=mpeg4 --control 127.0.0.1:80",
      "export KOLVEX_CAMERA_USER=guard KOLVEX_CAMERA_PASSWORD=secret");
  ASSERT_TRUE(program.WaitForOutput("ready\n"));
  EXPECT_THAT(Get("127.1.0.255", "/time.cgi?action=retrieve", "kolvex"), testing::StartsWith("401"));
  EXPECT_THAT(Get("127.1.0.255", "/time.cgi?action=retrieve"), HasSubstr("servertime="));

  struct Row {
    const char* address;
    const char* frame;
    const char* error;  // of the head; the camera doesn't read what it writes to the port
  };
  const Row rows[] = {
      {"127.0.1.1", "810570", ""},
      {"127.0.1.1", "01", "a message has 3 bytes, not 1"},
      {"127.0.1.1", "0101b8", "speed B8 doesn't belong to movement 01"},
      {"127.0.1.1", "414000", "unknown message 41 40 00"},
      {"127.1.0.255", "FF010002400043", ""},
      {"127.1.0.255", "FF010002200024", "checksum 24, not 23"},
      {"127.1.0.255", "FF020002200024", "address 2, this head is 1"},
      {"127.1.0.255", "FF0100022000", "a frame has 7 bytes, not 6"},
      {"127.1.0.255", "FF010002410044", "speeds 65 and 0 don't belong to command 00 02"},
      {"127.1.0.255", "FF010007002129", "unknown extended command 07 00 21"},
  };
  for (const Row& row : rows) {
    EXPECT_THAT(Get(row.address, std::string("/serial.cgi?action=apply&port=2&write=") + row.frame),
                testing::StartsWith("200 ret=200&method=apply"));
    EXPECT_THAT(Get(row.address, "/sim.cgi"), HasSubstr("\"lastError\": \"" + std::string(row.error) + "\""));
  }
  EXPECT_THAT(Get("127.1.0.255", "/sim.cgi"), HasSubstr("\"moving\": true"));

  EXPECT_THAT(Get("127.1.1.0", "/sim.cgi?http=stall&lose=every:9"), HasSubstr("ok"));
  EXPECT_THAT(Get("127.1.1.0", "/sim.cgi"), HasSubstr("\"lose\": \"every:9\"")) << "though replies stall";
  EXPECT_THAT(Get("127.0.0.1", "/?camera=127.1.0.255&silent=1"), HasSubstr("ok"));
  EXPECT_THAT(Get("127.0.0.1", "/?camera=127.0.9.9&silent=1"), testing::StartsWith("404"));
  EXPECT_THAT(Get("127.1.0.255", "/sim.cgi"), HasSubstr("\"silent\": true"));
  EXPECT_THAT(Get("127.1.1.0", "/sim.cgi"), HasSubstr("\"silent\": false"));
  // It leaves in the middle of the request that says so.
  Get("127.1.0.255", "/sim.cgi?reboot=0");
  EXPECT_TRUE(
      Eventually([] { return Get("127.1.0.255", "/sim.cgi").find("\"reboots\": 1") != std::string::npos; }));
  program.Signal(SIGTERM);
  const ProgramResult result = program.Finish();
  EXPECT_EQ(result.exit, 0);
  EXPECT_EQ(result.out,
            "camera 127.0.1.1:80  group 1  Kolvex P-426  mjpeg 352x288 25 fps  serial 1\n"
            "camera 127.1.0.255:80  group 1  Kolvex P-426  mpeg4 352x288 25 fps  serial 2\n"
            "camera 127.1.1.0:80  group 1  Kolvex P-426  mpeg4 352x288 25 fps  serial 2\n"
            "ready\n");
}

// A program that others wrote is the witness that the streams are what the standards say.
TEST(CameraProgram, StreamsToPlayersOfOthers) {
  if (std::system("command -v ffprobe >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "ffprobe isn't installed";
  }
  ProgramRun camera(KOLVEX_CAMERA);
  camera.Start("--quiet");
  ASSERT_TRUE(camera.WaitForOutput("ready\n"));
  for (const auto& [place, stream] : {std::pair("127.0.1.1/object.sdp", "mjpeg,352,288"),
                                      {"127.0.1.2/live", "mpeg4,352,288"},
                                      {"127.0.2.1/", "mjpeg,352,288"},
                                      {"127.0.2.2/any/path?at=all", "mpeg4,352,288"}}) {
    const ProgramResult result =
        ProgramRun("timeout 120 ffprobe")
            .Run(std::string("-v error -count_frames -read_intervals %+1 -show_entries "
                             "stream=codec_name,width,height -of csv=p=0 'rtsp://") +
                 place + "'");
    EXPECT_EQ(result.exit, 0) << place << result.err;
    EXPECT_THAT(result.out, testing::StartsWith(stream)) << place;
    EXPECT_EQ(result.err, "") << place;
  }
}

}  // namespace
