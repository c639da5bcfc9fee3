#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "support/ProgramRun.h"

namespace {

using namespace simcam;
using namespace simcam_test;
using kolvex_test::ProgramResult;
using kolvex_test::ProgramRun;
using testing::HasSubstr;

TEST(CameraProgram, ExplainsWhatIsWrongAndReturnsItsCode) {
  struct Row {
    const char* arguments;
    int code;
    const char* sentence;
  };
  const Row rows[] = {
      {"--camera group=3", 2, "\"3\" is no value for \"group\""},
      {"--camera colour=red", 2, "a camera has no property \"colour\""},
      {"--camera group=2,model=P-400", 1, "group 2 has no model \"P-400\""},
      {"--fault lose=2", 1, "the camera can't do \"lose=2\""},
      {"--password-file /nonexistent", 2, "can't read a password from /nonexistent"},
      {"--camera address=127.0.1.1 --camera address=127.0.1.1", 1,
       "can't listen on 127.0.1.1:80: Address already"},
  };
  for (const Row& row : rows) {
    const ProgramResult result = ProgramRun(KOLVEX_CAMERA).Run(row.arguments);
    EXPECT_EQ(result.exit, row.code) << row.arguments;
    EXPECT_THAT(result.out + result.err, HasSubstr(row.sentence)) << row.arguments;
  }
}

TEST(CameraProgram, TellsWhenItIsReadyChecksCredentialsAndEndsOnEachSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    ProgramRun program(KOLVEX_CAMERA);
    program.Start("--count 3 --first 127.1.0.254 --fleet group=2,codec=mpeg4",
                  "export KOLVEX_CAMERA_USER=guard KOLVEX_CAMERA_PASSWORD=secret");
    ASSERT_TRUE(program.WaitForOutput("ready\n"));
    for (const char* wrong : {"", "Basic YWRtaW46a29sdmV4", "Digest Z3VhcmQ6c2VjcmV0"}) {
      const std::string reply = Get("127.1.0.255", "/GetTime.cgi", wrong);
      EXPECT_THAT(reply, testing::StartsWith("HTTP/1.1 401 Unauthorized\r\n"));
      EXPECT_THAT(reply, HasSubstr("\r\nWWW-Authenticate: Basic realm=\"Kolvex\"\r\n"));
    }
    EXPECT_THAT(Get("127.1.0.255", "/GetTime.cgi", "Basic Z3VhcmQ6c2VjcmV0"), HasSubstr(" 200 "));
    program.Signal(signal);
    const ProgramResult result = program.Finish();
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(result.out, testing::StartsWith(
                                "camera 127.1.0.254:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
                                "camera 127.1.0.255:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
                                "camera 127.1.1.0:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
                                "ready\n"));
  }
}

TEST(CameraProgram, IsControlledOverHttpEvenWhileRepliesAreSpoiled) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  std::string error;
  ASSERT_TRUE(farm.ServeControl("127.0.0.1", 80, error)) << error;
  EXPECT_EQ(BodyOf(Get("127.0.1.1", "/sim.cgi?http=stall&lose=every:9", "")), "ok\n");
  const std::string status = BodyOf(Get("127.0.1.1", "/sim.cgi", ""));
  EXPECT_THAT(status, HasSubstr("\"http\": \"stall\""));
  EXPECT_THAT(status, HasSubstr("\"lose\": \"every:9\""));
  EXPECT_EQ(BodyOf(Get("127.0.0.1", "/?camera=127.0.2.1&silent=1", "")), "ok\n");
  EXPECT_EQ(BodyOf(Get("127.0.0.1", "/?camera=127.0.9.9&silent=1", "")), "no camera at 127.0.9.9\n");
  EXPECT_TRUE(farm.cameras()[1]->Status().faults.silent);
  EXPECT_FALSE(farm.cameras()[0]->Status().faults.silent);
}

}  // namespace
