#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <sys/stat.h>

#include "HostRun.h"
#include "support/Eventually.h"

namespace {

using kolvex_test::HostRun;
using kolvex_test::kWaitLimit;
using kolvex_test::ProgramResult;
using kolvex_test::ProgramRun;
using simcam::HeadStatus;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(IoCommand, WatchesInputsAndSwitchesTheOutputsThatAreNamedAlone) {
  struct Row {
    const char* arguments;
    int exit;
    const char* told;
    std::vector<bool> outputs;  // of the camera afterwards
  };
  // In this order.
  const Row rows[] = {
      {"2 high", 0, "Output 2 of Yard is high.", {false, true, false}},
      {"1 high", 0, "is high", {true, true, false}},  // those above stay as they are
      {"1 low 3 high", 0, "Output 3", {false, false, true}},
      {"1 high --settle 60s", 7, "refuses the connection", {false, false, true}},
  };
  for (const std::string group : {"1", "2"}) {
    SCOPED_TRACE(group);
    simcam::CameraFarm farm(1);
    auto& camera = farm.Add("address=127.0.1.1,inputs=2,outputs=3,group=" + group);
    HostRun run;
    const std::string where = " --camera 127.0.1.1,name=Yard,inputs=2,outputs=3,group=" + group;
    for (const Row& row : rows) {
      ASSERT_EQ(camera.Control(row.exit == 0 ? "heal=1" : "http=refuse"), "");
      // A stop that takes long looks like a request that was left over: on a busy machine now and then, but not each
      // time.
      ProgramResult result;
      for (int attempt = 0; attempt < 5 && result.exit != row.exit; ++attempt) {
        result = run.Run(std::string("io set ") + row.arguments + where);
      }
      EXPECT_EQ(result.exit, row.exit) << result.err;
      EXPECT_THAT(result.out + result.err, HasSubstr(row.told));
      EXPECT_TRUE(
          camera.WaitUntil([&](const auto& status) { return status.outputs == row.outputs; }, kWaitLimit))
          << row.arguments;
    }
    ASSERT_EQ(camera.Control("heal=1"), "");
    run.Start("--json io watch" + where);
    ASSERT_TRUE(run.WaitForOutput(R"("input":2,"state":"low")"));
    ASSERT_EQ(camera.Control("input2=1"), "");
    ASSERT_TRUE(run.WaitForOutput(R"("input":2,"state":"high")"));
    run.Signal(SIGINT);
    const ProgramResult result = run.Finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, testing::ContainsRegex(R"("time":"20[0-9-]*T[0-9:]*[.][0-9]*Z")"));
    EXPECT_THAT(camera.Status().outputs, ElementsAre(false, false, true)) << "as they were before";
  }
}

TEST(IoCommand, TellsWhyACameraWentSilentAndThatItIsBack) {
  simcam::CameraFarm farm(1);
  auto& camera = farm.Add("address=127.0.1.1,group=2");
  HostRun run;
  run.Start("--json io watch 127.0.1.1");
  ASSERT_TRUE(run.WaitForOutput(R"("input":1,"state":"low")"));
  ASSERT_EQ(camera.Control("http=status:401"), "");
  ASSERT_TRUE(run.WaitForOutput(R"("reason":"wrong-login")"));
  ASSERT_EQ(camera.Control("heal=1"), "");
  ASSERT_TRUE(run.WaitForOutput(R"("event":"recovered")"));
  ASSERT_EQ(camera.Control("http=refuse"), "");
  ASSERT_TRUE(run.WaitForOutput(R"("reason":"refused")"));
  run.Signal(SIGINT);
  EXPECT_EQ(run.Finish().exit, 7) << "the trouble goes on";
}

bool Still(const HeadStatus& head) { return !head.moving; }

/// A camera with a head, and a host that has its record.
struct PtzCommand : testing::Test {
  PtzCommand() {
    run.Write("yard.json", R"({"address": "127.0.1.1", "settings": {"2": "1", "9": "001122334455"}})");
  }
  void UseProtocol(int serial) {
    camera = &farm.Add("group=1,address=127.0.1.1,serial=" + std::to_string(serial));
  }
  ProgramResult Host(const std::string& arguments) {
    return run.Run("ptz " + arguments + " --camera-file yard.json");
  }
  HeadStatus Head() { return camera->Status().head; }
  bool Comes(const std::function<bool(const HeadStatus&)>& holds, milliseconds limit = kWaitLimit) {
    return camera->WaitUntil([&](const auto& status) { return holds(status.head); }, limit);
  }

  simcam::CameraFarm farm{1};
  simcam::SimulatedCamera* camera = nullptr;
  HostRun run;
};

TEST_F(PtzCommand, MovesTheHeadAndKeepsPositionsUnderNamesFromRunToRun) {
  UseProtocol(2);
  for (const auto& [movement, moved] : {std::pair("right --speed 16", &HeadStatus::pan),
                                        {"zoom-in", &HeadStatus::zoom},
                                        {"focus-far", &HeadStatus::focus},
                                        {"iris-open", &HeadStatus::iris}}) {
    const double before = Head().*moved;
    const ProgramResult result = Host(std::string("move --for 150ms ") + movement);
    EXPECT_EQ(result.exit, 0) << result.err;
    ASSERT_TRUE(Comes(Still));
    EXPECT_GT(Head().*moved, before) << movement;
  }
  ASSERT_EQ(Host("presets add Gate").exit, 0);
  const double gate = Head().pan;
  ASSERT_EQ(Host("move right --for 300ms").exit, 0);
  ASSERT_EQ(Host("presets add 'Back yard'").exit, 0);
  EXPECT_THAT(Host("presets add Gate").err, HasSubstr("There is a position \"Gate\" already"));
  EXPECT_THAT(Host("presets list").out, HasSubstr("       1  Gate\n       2  Back yard\n"));
  ASSERT_EQ(Host("presets go Gate").exit, 0);
  EXPECT_TRUE(Comes([&](const HeadStatus& head) { return !head.moving && head.pan == gate; }));
  EXPECT_THAT(Host("presets current --json").out, HasSubstr(R"("name":null)"));
  EXPECT_THAT(Host("presets go Door").err, HasSubstr("no position \"Door\""));
  EXPECT_THAT(Host("presets add 'a<b'").err, HasSubstr("is no name for a position"));
  ASSERT_EQ(Host("presets delete Gate").exit, 0);
  EXPECT_THAT(Host("presets list --json").out, HasSubstr(R"("names":["Back yard"])"));
  EXPECT_EQ(Head().errors, 0U) << Head().lastError;
}

TEST_F(PtzCommand, StoresInAFixedSlotWhenItIsToldTo) {
  UseProtocol(1);
  EXPECT_EQ(Host("presets add Gate").exit, 1);
  const ProgramResult result = Host("presets add Gate --over 'empty p3 '");
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(Head().presets, ElementsAre(testing::StartsWith("3:")));
}

TEST_F(PtzCommand, StopsTheHeadOnEachSignalOrTellsThatTheStopDidNotArrive) {
  UseProtocol(2);
  for (const auto& [signal, fault] :
       {std::pair(SIGINT, ""), {SIGTERM, ""}, {SIGHUP, ""}, {SIGINT, "http=reset"}}) {
    const bool arrives = *fault == '\0';
    run.Start("ptz move left --speed 1 --for 60s --camera-file yard.json");
    ASSERT_TRUE(Comes([](const HeadStatus& head) { return head.moving; }));
    ASSERT_EQ(camera->Control(fault), "");
    run.Signal(signal);
    const ProgramResult result = run.Finish();
    EXPECT_EQ(result.exit, arrives ? 0 : 7);
    EXPECT_THAT(result.err, HasSubstr(arrives ? "" : "may still be moving"));
    EXPECT_TRUE(!arrives || Comes(Still));
  }
}

TEST_F(PtzCommand, DrivesWhileAKeyIsHeldAndStopsOnItsReleaseAndOnEachWayOut) {
  UseProtocol(2);
  ASSERT_EQ(mkfifo((run.Folder() / "keys").c_str(), 0600), 0);
  std::fstream keys(run.Folder() / "keys");
  // Ctrl-C is a key; without a key the terminal goes.
  for (const std::string way : {"q", "\x03", ""}) {
    SCOPED_TRACE(way);
    ProgramRun terminal("script");
    terminal.Start("-qefc 'exec ./kolvex-host ptz drive --speed 2 --camera-file yard.json' /dev/null <keys",
                   "cd " + run.Folder().string());
    ASSERT_TRUE(terminal.WaitForOutput("speed 2"));
    const std::uint64_t frames = Head().frames;
    const double goal = Head().pan - 2;
    // A terminal repeats a key that is held.
    bool came = false;
    std::uint64_t repeats = 0;
    for (; repeats < 1200 && !came; ++repeats) {
      keys << "\x1B[D" << std::flush;
      came = Comes([&](const HeadStatus& head) { return head.pan < goal; }, milliseconds(50));
    }
    EXPECT_TRUE(came);
    // One movement; more where a busy machine made a pause between two repeats.
    EXPECT_LE(Head().frames - frames, std::max<std::uint64_t>(2, repeats / 2)) << "repeats aren't sent again";
    EXPECT_TRUE(way != "q" || Comes(Still));
    keys << way << std::flush;
    if (way.empty()) {
      terminal.Signal(SIGKILL);
    }
    EXPECT_EQ(terminal.Finish().exit, way.empty() ? -1 : 0);
    EXPECT_TRUE(Comes(Still));
    EXPECT_EQ(Head().errors, 0U) << Head().lastError;
  }
}

}  // namespace
