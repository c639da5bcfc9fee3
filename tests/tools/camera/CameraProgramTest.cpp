#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "CameraClient.h"

namespace {

using namespace simcam_test;
using testing::HasSubstr;

/// The program in a process of its own, with both its outputs in one text.
class Program {
 public:
  explicit Program(const std::string& arguments, const std::string& environment = "")
      : output_(popen(
            ("exec 2>&1; echo $$; exec env " + environment + " " KOLVEX_CAMERA " " + arguments).c_str(), "r")) {
    ReadLine();
    id_ = std::stoi(said_);
    said_.clear();
  }
  ~Program() {
    if (output_ != nullptr) End(SIGKILL);
  }

  /// Reads the next line; false when there is none.
  bool ReadLine() {
    char line[4096];
    const bool got = fgets(line, sizeof line, output_) != nullptr;
    said_ += got ? line : "";
    return got;
  }
  bool WaitForReady() {
    while (!said_.ends_with("ready\n")) {
      if (!ReadLine()) return false;
    }
    return true;
  }
  /// Sends a signal, unless 0, and gives the exit code.
  int End(int signal) {
    kill(id_, signal);
    while (ReadLine()) {
    }
    const int status = pclose(output_);
    output_ = nullptr;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string& said() const { return said_; }

 private:
  FILE* output_;
  pid_t id_ = 0;
  std::string said_;
};

TEST(CameraProgram, ExplainsWhatIsWrongAndReturnsItsCode) {
  struct Row {
    const char* arguments;
    int code;
    const char* sentence;
  };
  const Row rows[] = {
      {"--help", 0, "Control commands"},
      {"--camera group=3", 2, "\"3\" is no value for \"group\""},
      {"--camera colour=red", 2, "a camera has no property \"colour\""},
      {"--camera address=camera.example", 2, "\"camera.example\" is no value for \"address\""},
      {"--camera group=2,model=P-400", 1, "group 2 has no model \"P-400\""},
      {"--fault lose=2", 1, "the camera can't do \"lose=2\""},
      {"--password-file /nonexistent", 2, "can't read a password from /nonexistent"},
      {"--camera address=127.0.1.1 --camera address=127.0.1.1", 1,
       "can't listen on 127.0.1.1:80: Address already"},
  };
  for (const Row& row : rows) {
    Program program(row.arguments);
    EXPECT_EQ(program.End(0), row.code) << row.arguments;
    EXPECT_THAT(program.said(), HasSubstr(row.sentence)) << row.arguments;
  }
}

TEST(CameraProgram, TellsWhenItIsReadyChecksCredentialsAndEndsOnEachSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program program("--count 3 --first 127.1.0.254 --fleet group=2,codec=mpeg4",
                    "KOLVEX_CAMERA_USER=guard KOLVEX_CAMERA_PASSWORD=secret");
    ASSERT_TRUE(program.WaitForReady()) << program.said();
    EXPECT_EQ(program.said(),
              "camera 127.1.0.254:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "camera 127.1.0.255:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "camera 127.1.1.0:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "ready\n");
    for (const char* wrong : {"", "Basic YWRtaW46a29sdmV4", "Digest Z3VhcmQ6c2VjcmV0"}) {
      const std::string reply = Get("127.1.0.255", "/GetTime.cgi", wrong);
      EXPECT_THAT(reply, testing::StartsWith("HTTP/1.1 401 Unauthorized\r\n"));
      EXPECT_THAT(reply, HasSubstr("\r\nWWW-Authenticate: Basic realm=\"Kolvex\"\r\n"));
    }
    EXPECT_THAT(Get("127.1.0.255", "/GetTime.cgi", "Basic Z3VhcmQ6c2VjcmV0"), HasSubstr(" 200 "));
    EXPECT_EQ(program.End(signal), 0);
  }
}

}  // namespace
