#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostRun.h"
#include "simcam/CameraFarm.h"

namespace {

using kolvex_test::HostResult;
using kolvex_test::HostRun;
using nlohmann::json;
using testing::HasSubstr;

constexpr const char* kLogin = "export KOLVEX_USER=admin KOLVEX_PASSWORD=kolvex";

TEST(QueryCommand, SavesWhatItTells) {
  struct Row {
    const char* camera;
    const char* arguments;
    const char* size;
    json device;
    json settings;
  };
  const json group1 = {
      {"1", "5000"},        {"2", "1"},    {"3", "0"},   {"4", "16"},
      {"5", "4"},           {"6", "3000"}, {"7", "256"}, {"8", "256,512,768,1000,1500,2000,3000,e"},
      {"9", "0A1B2C3D4E5F"}};
  const Row rows[] = {
      {"address=127.0.1.1,group=1,model=P-426,mac=0A:1B:2C:3D:4E:5F",
       "probe --ntsc 127.0.1.1",
       "720x480",
       {{"channels", 1}, {"inputs", 4}, {"outputs", 2}, {"ptz", true}, {"audio", true}},
       group1},
      {"address=127.0.0.1,group=2,model=P-410,http-port=8080",
       "query localhost:8080",
       "720x576",
       {{"model", "Kolvex P-410"}, {"inputs", 1}, {"outputs", 1}, {"ptz", true}},
       {{"1", "5000"}, {"2", "2"}, {"3", "1"}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.camera);
    simcam::CameraFarm farm(1);
    farm.Add(std::string_view(row.camera));
    HostRun run;
    const HostResult query =
        run.Run(std::string("--json ") + row.arguments + " --name Yard --save yard.json", kLogin);
    ASSERT_EQ(query.exit, 0) << query.err;
    const json file = json::parse(run.Read("yard.json"));
    json told = json::parse(query.out);
    told.erase("event");
    EXPECT_EQ(told, file);
    EXPECT_EQ(file["size"], row.size);
    EXPECT_EQ(file["settings"], row.settings);
    for (const auto& [key, value] : row.device.items()) {
      EXPECT_EQ(file["device"][key], value) << key;
    }
  }
}

TEST(QueryCommand, SaysWhatIsWrongInOneSentence) {
  struct Row {
    const char* name;
    const char* camera;  // what stands at 127.0.1.1
    const char* faults;
    std::string arguments;
    int exit;
    const char* sentence;
    std::string before = kLogin;
  };
  const Row rows[] = {
      {"nobody there", "group=1", "", "query 127.0.1.9", 7,
       "Nobody answers at 127.0.1.9:80: Connection refused"},
      {"a wrong password for group 1", "group=1", "", "query 127.0.1.1", 8,
       "wants another user name or password", "export KOLVEX_USER=admin KOLVEX_PASSWORD=no"},
      {"another device", "group=1", "http=status:404", "query 127.0.1.1", 7, "is no camera of this family"},
      {"an unknown model", "group=2,model=P-499", "", "query 127.0.1.1", 7, "can't be used"},
      {"a camera that is silent at once", "group=1", "http=stall", "query --timeout 0.5 127.0.1.1", 7,
       "didn't answer in the time of --timeout"},
      {"nowhere to write", "group=1", "", "query --save none/yard.json 127.0.1.1", 5, "can't be written"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    simcam::CameraFarm farm(1);
    auto& camera = farm.Add(std::string("address=127.0.1.1,") + row.camera);
    ASSERT_EQ(camera.Control(row.faults), "");
    HostRun run;
    const HostResult result = run.Run(row.arguments, row.before);
    EXPECT_EQ(result.exit, row.exit) << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.sentence));
    EXPECT_EQ(result.out, "");
  }
}

}  // namespace
