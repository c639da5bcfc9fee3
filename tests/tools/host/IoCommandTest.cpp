#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HostRun.h"
#include "simcam/CameraFarm.h"

namespace {

using kolvex_test::HostResult;
using kolvex_test::HostRun;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kLogin = "export KOLVEX_USER=admin KOLVEX_PASSWORD=kolvex";

TEST(IoCommand, SwitchesTheOutputsThatAreNamedAndTellsWhetherTheCameraTookThem) {
  struct Row {
    const char* name;
    const char* faults;
    std::string arguments;
    int exit;
    const char* told;
    std::vector<bool> outputs;  // of the camera afterwards
  };
  // In this order, on one camera.
  const Row rows[] = {
      {"one", "", "set 2 high", 0, "Output 2 of Yard is high.", {false, true, false}},
      {"a lower one alone leaves those above", "", "set 1 high", 0, "is high", {true, true, false}},
      {"several", "", "set 1 low 3 high", 0, "Output 3", {false, false, true}},
      {"refused", "http=refuse", "set 1 high", 7, "didn't take", {false, false, true}},
      {"no such output", "", "set 4 high", 1, "there is no output 4", {false, false, true}},
  };
  for (const char* group : {"1", "2"}) {
    simcam::CameraFarm farm(1);
    auto& camera = farm.Add(std::string("address=127.0.1.1,outputs=3,group=") + group);
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string("group ") + group + ": " + row.name);
      ASSERT_EQ(camera.Control(std::string("heal=1&") + row.faults), "");
      HostRun run;
      const HostResult result =
          run.Run("io " + row.arguments + " --camera 127.0.1.1,name=Yard,outputs=3,group=" + group, kLogin);
      EXPECT_EQ(result.exit, row.exit) << result.err;
      EXPECT_THAT(result.out + result.err, HasSubstr(row.told));
      EXPECT_EQ(camera.Status().outputs, row.outputs);
    }
  }
}

TEST(IoCommand, WatchesInputsAndSwitchesNothing) {
  for (const char* group : {"1", "2"}) {
    SCOPED_TRACE(group);
    simcam::CameraFarm farm(1);
    auto& camera = farm.Add(std::string("address=127.0.1.1,inputs=2,outputs=2,group=") + group);
    HostRun run;
    const std::string where = std::string(" --camera 127.0.1.1,inputs=2,outputs=2,group=") + group;
    ASSERT_EQ(run.Run("io set 1 high" + where, kLogin).exit, 0);
    run.Start("--json io watch" + where, kLogin);
    ASSERT_TRUE(run.WaitForOutput(R"("input":2,"state":"low")"));
    ASSERT_EQ(camera.Control("input2=1"), "");
    ASSERT_TRUE(run.WaitForOutput(R"("input":2,"state":"high")"));
    run.Signal(SIGINT);
    const HostResult result = run.Finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, testing::ContainsRegex(R"("time":"20[0-9-]*T[0-9:]*[.][0-9]*Z")"));
    EXPECT_THAT(camera.Status().outputs, ElementsAre(true, false)) << "as they were before";
  }
}

}  // namespace
