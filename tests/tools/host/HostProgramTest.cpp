#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <map>
#include <sstream>

#include "HostRun.h"

namespace {

using kolvex_test::HostRun;
using kolvex_test::ProgramResult;
using nlohmann::json;
using testing::HasSubstr;

TEST(HostProgram, ExplainsEachFailureInOneSentenceAndReturnsItsCode) {
  struct Row {
    const char* name;
    std::string arguments;
    int exit;
    const char* sentence;
    const char* before = "";
    const char* camera = "";  // what stands at 127.0.1.1, and what is wrong with it
    const char* faults = "";
  };
  const std::string yard = " --camera 127.0.1.1,group=1,name=Yard";
  const std::string frames = yard + " --frames 2";
  const std::string head = " --camera-file head";
  constexpr const char* kHead =
      R"(echo '{"address": "127.0.1.1", "group": 1, "settings": {"9": "0A1B2C3D4E5F"}}' >head)";
  const Row rows[] = {
      {"no camera", "capture", 1, "There is no camera to capture from"},
      {"a port beyond 65535", "capture --camera 127.0.1.1:65536,group=1", 1, "\"65536\" is no port"},
      {"tiles from a file", "capture --out out --tiles-from f" + frames, 1, "no named pipe", ">f"},
      {"a camera file of text", "capture --camera-file text", 1, "isn't JSON", "echo hello >text"},
      {"a wrong camera file", "capture --camera-file f", 1, "no setting \"x\"",
       R"(echo '{"settings": {"x": ""}}' >f)"},
      {"open credentials", "--credentials f capture" + frames, 1, "protect it with chmod 600",
       ">f; chmod 644 f"},
      {"no such output", "io set 4 high" + yard + ",outputs=3", 1, "there is no output 4"},
      {"no movement", "ptz move sideways" + head, 1, "is no movement", kHead},
      {"no hardware address", "ptz stop" + yard, 1, "needs its hardware address"},
      {"no terminal", "ptz drive </dev/null" + head, 1, "needs a terminal", kHead, "group=1"},
      {"no library", "--library ./none.so capture" + frames, 2, "can't be loaded: ./none.so"},
      {"silence", "capture --duration 1" + yard, 4, "No frame came from Yard.", "", "group=1", "silent=1"},
      {"a full folder", "capture --out old" + frames, 5, "isn't empty", "mkdir old; >old/file"},
      {"no folder", "capture --out file/out" + frames, 5, "can't be made", ">file"},
      // Coverage's own files meet the limit, too.
      {"no room", "capture --out out" + frames, 5, "File too large",
       "trap '' XFSZ; ulimit -f 1; export GCOV_PREFIX=. GCOV_ERROR_FILE=/dev/null", "group=1"},
      {"nobody reads the output", "capture --progress never" + frames + " >/dev/full", 5,
       "Standard output can't be written", "", "group=1"},
      {"nowhere to write", "query --save none/yard 127.0.1.1", 5, "can't be written", "", "group=1"},
      {"nobody there", "query 127.0.1.1", 7, "Nobody answers at 127.0.1.1:80: Connection refused"},
      {"another device", "query 127.0.1.1", 7, "is no camera of this family", "", "group=1", "http=status:404"},
      {"an unknown model", "query 127.0.1.1", 7, "can't be used", "", "group=2,model=P-499"},
      {"no answer", "query --timeout 0.5 127.0.1.1", 7, "in the time of --timeout", "", "group=1",
       "http=stall"},
      {"no heads in group 2", "ptz stop --camera 127.0.1.1,group=2", 7, "no PTZ for cameras of group 2"},
      {"a silent head", "ptz stop" + head, 7, "or doesn't answer", kHead},
      {"a wrong password", "query 127.0.1.1", 8, "wants another user name or password",
       "export KOLVEX_PASSWORD=no", "group=1"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    simcam::CameraFarm farm(1);
    if (*row.camera != '\0') {
      ASSERT_EQ(farm.Add(std::string("address=127.0.1.1,") + row.camera).Control(row.faults), "");
    }
    const ProgramResult result = HostRun().Run(row.arguments, row.before);
    EXPECT_EQ(result.exit, row.exit) << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.sentence));
  }
}

// The lines of a stream's frames.csv, each by its fields.
std::vector<std::vector<std::string>> Index(const HostRun& run, const std::string& folder) {
  std::vector<std::vector<std::string>> frames;
  std::istringstream lines(run.Read(folder + "/frames.csv"));
  std::string line;
  for (std::getline(lines, line); std::getline(lines, line);) {
    std::istringstream fields(line + ",");
    frames.emplace_back();
    for (std::string field; std::getline(fields, field, ',');) {
      frames.back().push_back(field);
    }
  }
  return frames;
}

TEST(HostProgram, CapturesWhatAQueryFoundAndTellsWhatCame) {
  simcam::CameraFarm farm(1);
  auto& yard = farm.Add({.address = "127.0.1.1",
                         .httpPort = 8080,
                         .userName = "one",
                         .password = "own",
                         .hardwareAddress = "0A:1B:2C:3D:4E:5F"});
  auto& gate = farm.Add("group=2,address=127.0.2.1");
  HostRun run;
  run.Write("list.json", R"([{"address": "127.0.2.1", "name": "Gate", "group": 2, "codec": "mpeg4",
      "size": "320x240", "interval": 100, "quality": 80, "device": {"ptz": true}, "settings": {"3": "0"}}])");
  run.Write("key.json", R"({"user": "admin", "password": "kolvex",
      "cameras": {"127.0.1.1": {"user": "one", "password": "own"}}})");
  const std::string common = "--json --credentials key.json ";
  const char* const secret = "unset KOLVEX_PASSWORD; chmod 600 key.json";
  const ProgramResult query =
      run.Run(common + "query 127.0.1.1:8080 --ntsc --name Back/yard --save yard.json", secret);
  ASSERT_EQ(query.exit, 0) << query.err;
  json file = json::parse(run.Read("yard.json"));
  EXPECT_EQ(file["size"], "720x480");
  EXPECT_EQ(file["settings"],
            json::parse(R"({"1": "5000", "2": "1", "3": "0", "4": "16", "5": "4", "6": "3000", "7": "256",
                "8": "256,512,768,1000,1500,2000,3000,e", "9": "0A1B2C3D4E5F"})"));
  EXPECT_EQ(file["device"]["inputs"], 4);
  EXPECT_EQ(file["device"]["ptz"], true);
  file["event"] = "camera";
  EXPECT_EQ(json::parse(query.out), file);

  ASSERT_EQ(yard.Control("lose=every:30"), "");
  run.Start(
      common +
          "capture --out out --keep every 2 --cameras list.json --camera-file yard.json,fps=10,size=352x240",
      secret);
  const auto enough = [](const auto& status) { return status.counters.framesSent >= 30; };
  ASSERT_TRUE(yard.WaitUntil(enough, std::chrono::seconds(20)) &&
              gate.WaitUntil(enough, std::chrono::seconds(20)));
  run.Signal(SIGTERM);
  const ProgramResult result = run.Finish();
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(
      yard.Status().requests,
      testing::Contains(HasSubstr("&tv_standard=NTSC&resolution=cif&const_qu=9&fps=10&gopsize=1&mode=mjpeg")));
  EXPECT_THAT(gate.Status().requests,
              testing::Contains(HasSubstr("&Resolution=qvga&Fps=10&Format=NTSC&Mode=mpeg4")));
  EXPECT_THAT(gate.Status().requests, testing::Contains(HasSubstr("TEARDOWN")));

  std::map<std::string, json> streams;
  json last;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    last = json::parse(line);
    if (last["event"] == "stream") {
      streams[last["camera"]] = last;
    }
  }
  EXPECT_EQ(last["event"], "end");
  EXPECT_EQ(last["reason"], "signal");
  EXPECT_GT(streams["Back/yard"]["lost"], 0);

  for (const auto& [name, folder] : {std::pair("Gate", "out/1-Gate"), {"Back/yard", "out/2-Back-yard"}}) {
    SCOPED_TRACE(name);
    const bool jpeg = *name == 'B';
    const json& told = streams[name];
    const auto frames = Index(run, folder);
    ASSERT_FALSE(frames.empty());
    std::size_t bytes = 0, keys = 0;
    for (const auto& frame : frames) {
      const std::size_t size = std::stoul(frame.at(2));
      if (!jpeg || std::stoul(frame[0]) % 2 == 1) {
        const std::string file = run.Read(std::string(folder) + "/" + frame[6]);
        const std::string content = file.substr(jpeg ? 0 : std::stoul(frame[7]), size);
        EXPECT_EQ(content.size(), size);
        EXPECT_EQ(content.substr(0, 3), jpeg ? "\xFF\xD8\xFF" : std::string("\0\0\1", 3));
        EXPECT_TRUE(!jpeg || content.ends_with("\xFF\xD9"));
      } else {
        EXPECT_EQ(frame[6], "");
      }
      bytes += size;
      keys += frame[3] == "1" ? 1 : 0;
    }
    EXPECT_EQ(told["group"], jpeg ? "1" : "2");
    EXPECT_EQ(told["codec"], jpeg ? "MJPEG" : "MPEG-4");
    EXPECT_EQ(told["frames"], frames.size());
    EXPECT_EQ(told["counted"], frames.size());
    EXPECT_EQ(told["keyFrames"], keys);
    EXPECT_EQ(told["bytes"], bytes);
    EXPECT_EQ(told["lost"], std::stoul(frames.back().at(8)) - std::stoul(frames[0][8]) + 1 - frames.size());
    EXPECT_EQ(told["damaged"], 0);
    EXPECT_EQ(told["doubled"], 0);
  }
  EXPECT_EQ(run.Read("out/contact-sheet.png").substr(1, 3), "PNG");
}

}  // namespace
