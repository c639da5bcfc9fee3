#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HostRun.h"
#include "simcam/CameraFarm.h"

namespace {

using kolvex_test::HostResult;
using kolvex_test::HostRun;
using simcam::CameraStatus;
using simcam::HeadStatus;
using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr const char* kLogin = "export KOLVEX_USER=admin KOLVEX_PASSWORD=kolvex";
constexpr const char* kWhere = " --camera-file yard.json";
bool Moving(const HeadStatus& head) { return head.moving; }
bool Still(const HeadStatus& head) { return !head.moving; }

/// A camera with a head, and a host that has its record.
class HeadCommand : public testing::Test {
 protected:
  explicit HeadCommand(const char* properties = "group=1,address=127.0.1.1,serial=2")
      : farm_(1), camera_(farm_.Add(std::string_view(properties))) {
    run_.CopyProgram();
    run_.File("yard.json", R"({"address": "127.0.1.1", "name": "Yard",
        "settings": {"2": "1", "3": "1", "9": "001122334455"}})");
  }

  HostResult Host(const std::string& arguments) { return run_.Run("ptz " + arguments + kWhere, kLogin); }
  HeadStatus Head() { return camera_.Status().head; }
  bool Comes(const std::function<bool(const HeadStatus&)>& holds, milliseconds limit = milliseconds(10'000)) {
    return camera_.WaitUntil([&holds](const CameraStatus& status) { return holds(status.head); }, limit);
  }

  simcam::CameraFarm farm_;
  simcam::SimulatedCamera& camera_;
  HostRun run_;
};

TEST_F(HeadCommand, MovesEachWayAndStops) {
  struct Row {
    const char* movement;
    double HeadStatus::*moved;
    int sign;
  };
  const Row rows[] = {
      {"right", &HeadStatus::pan, 1},      {"left-up --speed 16", &HeadStatus::pan, -1},
      {"zoom-in", &HeadStatus::zoom, 1},   {"focus-far", &HeadStatus::focus, 1},
      {"iris-open", &HeadStatus::iris, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.movement);
    const double before = Head().*row.moved;
    const HostResult result = Host(std::string("move --for 150ms ") + row.movement);
    EXPECT_EQ(result.exit, 0) << result.err;
    ASSERT_TRUE(Comes(Still));
    EXPECT_GT((Head().*row.moved - before) * row.sign, 0);
  }
  EXPECT_EQ(Head().errors, 0U) << Head().lastError;
}

TEST_F(HeadCommand, StopsTheHeadOnEachSignalOrTellsThatTheStopDidNotArrive) {
  struct Row {
    int signal;
    const char* fault;
    int exit;
  };
  for (const Row& row : {Row{SIGINT, "", 0}, {SIGTERM, "", 0}, {SIGHUP, "", 0}, {SIGINT, "http=reset", 7}}) {
    run_.Start(std::string("ptz move left --speed 1 --for 60s") + kWhere, kLogin);
    ASSERT_TRUE(Comes(Moving));
    ASSERT_EQ(camera_.Control(row.fault), "");
    run_.Signal(row.signal);
    const HostResult result = run_.Finish();
    EXPECT_EQ(result.exit, row.exit);
    EXPECT_THAT(result.err, HasSubstr(row.exit == 0 ? "" : "may still be moving"));
    EXPECT_TRUE(row.exit != 0 || Comes(Still));
  }
}

TEST_F(HeadCommand, KeepsPositionsUnderNamesFromRunToRun) {
  EXPECT_THAT(Host("presets list").out, HasSubstr("No position is stored."));
  ASSERT_EQ(Host("presets add Gate").exit, 0);
  ASSERT_EQ(Host("move right --for 300ms").exit, 0);
  ASSERT_EQ(Host("presets add 'Back yard'").exit, 0);
  EXPECT_THAT(Host("presets list").out, HasSubstr("       1  Gate\n       2  Back yard\n"));
  ASSERT_EQ(Host("presets go Gate").exit, 0);
  EXPECT_TRUE(Comes([](const HeadStatus& head) { return !head.moving && head.pan == 0; }));
  EXPECT_THAT(Host("presets current --json").out, HasSubstr(R"("name":null)"));
  EXPECT_THAT(Host("presets go Door").err, HasSubstr("no position \"Door\""));
  EXPECT_THAT(Host("presets add 'a<b'").err, HasSubstr("is no name for a position"));
  ASSERT_EQ(Host("presets delete Gate").exit, 0);
  EXPECT_THAT(Host("presets list --json").out, HasSubstr(R"("names":["Back yard"])"));
  EXPECT_EQ(Head().errors, 0U);
}

class FixedSlotHeadCommand : public HeadCommand {
 protected:
  FixedSlotHeadCommand() : HeadCommand("group=1,address=127.0.1.1,serial=1") {}
};

TEST_F(FixedSlotHeadCommand, StoresWhereItIsToldOnly) {
  EXPECT_EQ(Host("presets add Gate").exit, 1);
  const HostResult result = Host("presets add Gate --over 'empty p3 '");
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(Head().presets, testing::ElementsAre(testing::StartsWith("3:")));
}

TEST_F(HeadCommand, SaysWhyThereIsNoHead) {
  EXPECT_THAT(run_.Run("ptz stop --camera 127.0.1.1,group=2").err, HasSubstr("no PTZ for cameras of group 2"));
  EXPECT_THAT(run_.Run("ptz stop --camera 127.0.1.1,group=1").err, HasSubstr("needs its hardware address"));
  EXPECT_THAT(Host("move sideways").err, HasSubstr("is no movement"));
  EXPECT_THAT(Host("move left --for 3").err, HasSubstr("--for takes a time"));
  EXPECT_EQ(Host("move left --speed 17").exit, 1);
  EXPECT_THAT(Host("drive </dev/null").err, HasSubstr("needs a terminal"));
  farm_.Remove(&camera_);
  EXPECT_THAT(Host("stop").err, HasSubstr("or doesn't answer"));
}

/// The program on a terminal of its own.
class DriveCommand : public HeadCommand, public testing::WithParamInterface<const char*> {
 protected:
  DriveCommand() {
    child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
      const std::string command = std::string(kLogin) + "; exec " + run_.Program() +
                                  " ptz drive --library " FAKE_DRIVER " --speed 2" + kWhere;
      if (chdir(run_.Folder().c_str()) == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      }
      _exit(127);
    }
    WaitFor("speed 2");
  }
  ~DriveCommand() override {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    HangUp();
  }

  void WaitFor(const std::string& text) {
    std::string shown;
    char buffer[512];
    while (shown.find(text) == shown.npos) {
      const ssize_t count = read(terminal_, buffer, sizeof buffer);
      ASSERT_GT(count, 0) << shown;
      shown.append(buffer, static_cast<std::size_t>(count));
    }
  }
  void Press(std::string_view keys) {
    EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  /// Holds a key, as a terminal does by repeating it, until @p holds.
  bool Hold(std::string_view key, const std::function<bool(const HeadStatus&)>& holds) {
    bool came = false;
    for (int repeats = 0; repeats < 200 && !came; ++repeats) {
      Press(key);
      came = Comes(holds, milliseconds(50));
    }
    return came;
  }
  void HangUp() {
    if (terminal_ >= 0) {
      close(std::exchange(terminal_, -1));
    }
  }
  int Exit() {
    int status = 0;
    waitpid(std::exchange(child_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  pid_t child_ = -1;
  int terminal_ = -1;
};

TEST_P(DriveCommand, MovesWhileAKeyIsHeldAndStopsOnItsReleaseAndOnEachWayOut) {
  const std::string keys = GetParam();
  const std::uint64_t before = Head().frames;
  EXPECT_TRUE(Hold("\x1B[D", [](const HeadStatus& head) { return head.pan < -2; }));
  EXPECT_LE(Head().frames - before, 2U) << "repeats aren't sent again";
  EXPECT_TRUE(keys != "q" || Comes(Still));
  keys.empty() ? HangUp() : Press(keys);
  const int exit = Exit();
  EXPECT_TRUE(keys.empty() || exit == 0) << exit;
  EXPECT_TRUE(Comes(Still));
  EXPECT_EQ(Head().errors, 0U) << Head().lastError;
}

// Without keys the terminal goes.
INSTANTIATE_TEST_SUITE_P(EachWay, DriveCommand, testing::Values("q", "\x03", ""));

}  // namespace
