#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "CameraClient.h"

namespace {

using namespace simcam_test;
using testing::HasSubstr;

/// The program in a process of its own, with both its outputs in one text.
class Program {
 public:
  explicit Program(const std::string& arguments) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      execl("/bin/sh", "sh", "-c", ("exec " KOLVEX_CAMERA " " + arguments).c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~Program() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      Finish();
    }
    close(output_);
  }

  /// Reads until the text has come; false when the output ended or stood still for long.
  bool WaitFor(const std::string& text) {
    while (said_.find(text) == std::string::npos) {
      if (!ReadMore()) return false;
    }
    return true;
  }
  void Signal(int number) const { kill(child_, number); }
  int Finish() {
    while (ReadMore()) {
    }
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string& said() const { return said_; }

 private:
  bool ReadMore() {
    pollfd readable{output_, POLLIN, 0};
    char buffer[4096];
    if (poll(&readable, 1, 20'000) <= 0) return false;
    const ssize_t count = read(output_, buffer, sizeof buffer);
    if (count > 0) said_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }

  pid_t child_ = -1;
  int output_ = -1;
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
      {"--colour", 2, "--colour"},
      {"--camera group=3", 2, "\"3\" is no value for \"group\""},
      {"--camera colour=red", 2, "a camera has no property \"colour\""},
      {"--camera address=camera.example", 2, "\"camera.example\" is no value for \"address\""},
      {"--camera group=2,model=P-400", 1, "group 2 has no model \"P-400\""},
      {"--camera group=1,resolution=vga", 1, "group 1 has no resolution \"vga\""},
      {"--fault lose=2", 1, "the camera can't do \"lose=2\""},
      {"--control nowhere", 2, "--control takes ADDRESS:PORT"},
      {"--password-file /nonexistent", 2, "can't read a password from /nonexistent"},
      {"--camera address=127.0.1.1 --camera address=127.0.1.1", 1,
       "can't listen on 127.0.1.1:80: Address already"},
      {"--camera address=192.0.2.1", 1, "can't listen on 192.0.2.1:80"},
  };
  for (const Row& row : rows) {
    Program program(row.arguments);
    EXPECT_EQ(program.Finish(), row.code) << row.arguments;
    EXPECT_THAT(program.said(), HasSubstr(row.sentence)) << row.arguments;
  }
}

TEST(CameraProgram, TellsWhenItIsReadyAndEndsOnEachSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program program("--count 3 --first 127.1.0.254 --fleet group=2,codec=mpeg4 --control 127.0.0.1:8099");
    ASSERT_TRUE(program.WaitFor("\nready\n")) << program.said();
    EXPECT_EQ(program.said(),
              "camera 127.1.0.254:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "camera 127.1.0.255:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "camera 127.1.1.0:80  group 2  Kolvex P-410  mpeg4 352x288 25 fps  serial 0\n"
              "ready\n");
    Stream stream("127.1.1.0", 2);
    EXPECT_FALSE(stream.NextFrame().empty());
    program.Signal(signal);
    EXPECT_EQ(program.Finish(), 0);
  }
}

TEST(CameraProgram, TakesCredentialsFromItsEnvironment) {
  setenv("KOLVEX_CAMERA_USER", "guard", 1);
  setenv("KOLVEX_CAMERA_PASSWORD", "secret", 1);
  Program program("--camera address=127.0.1.1");
  unsetenv("KOLVEX_CAMERA_USER");
  unsetenv("KOLVEX_CAMERA_PASSWORD");
  ASSERT_TRUE(program.WaitFor("ready\n")) << program.said();
  EXPECT_THAT(Get("127.0.1.1", "/time.cgi?action=retrieve"), HasSubstr(" 401 "));
  EXPECT_THAT(Get("127.0.1.1", "/time.cgi?action=retrieve", "Basic Z3VhcmQ6c2VjcmV0"), HasSubstr(" 200 "));
}

}  // namespace
