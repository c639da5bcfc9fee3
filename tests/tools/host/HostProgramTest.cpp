#include <csignal>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostRun.h"

namespace {

using kolvex_test::HostResult;
using kolvex_test::HostRun;
using nlohmann::json;
using testing::HasSubstr;

constexpr const char* kCamera = "--camera 127.0.0.1,group=2,size=320x240,name=Yard,model=";

struct Row {
  const char* name;
  std::string arguments;
  int exit;
  const char* sentence;  // in standard error
  std::string before = "";
};

TEST(HostProgram, ExplainsEachFailureInOneSentenceAndReturnsItsCode) {
  const std::string frames = std::string(kCamera) + "'0 1 2' --frames 3";
  const Row rows[] = {
      {"no camera", "capture", 1, "There is no camera to capture from"},
      {"no group", "capture --camera 127.0.0.1", 1, "needs its firmware group"},
      {"a port beyond 65535", "capture --camera 127.0.0.1:65536,group=1", 1, "\"65536\" is no port"},
      {"an unknown key", "capture --camera 127.0.0.1,group=1,color=red", 1, "no key \"color\""},
      {"tiles without a sheet", "capture --tiles-from - " + frames, 1, "--tiles-from needs --out"},
      {"tiles from a file", "capture --out out --tiles-from file " + frames, 1, "is no named pipe", ">file"},
      {"a camera file of text", "capture --camera-file text", 1, "isn't JSON", "echo hello >text"},
      {"a setting of no number", "capture --camera-file file", 1, "there is no setting \"x\"",
       R"(echo '{"address": "127.0.0.1", "settings": {"2": "1", "x": ""}}' >file)"},
      {"open credentials", "--credentials key capture " + frames, 1, "protect it with chmod 600",
       "echo '{}' >key; chmod 644 key"},
      {"no library", "--library ./none.so capture " + frames, 2, "can't be loaded: ./none.so"},
      {"refused at Open", std::string("capture ") + kCamera + "refuse", 3, "refused to open the camera Yard"},
      {"refused at StartCapture", std::string("capture ") + kCamera + "deaf", 3, "refused to start the stream"},
      {"a silent camera beside a live one",
       "capture --duration 1 " + std::string(kCamera) + "0 --camera 127.0.0.2,group=1,name=Gate", 4,
       "No frame came from Gate."},
      {"results in a full folder", "capture --out old " + frames, 5, "isn't empty", "mkdir old; >old/file"},
      {"a folder that can't be made", "capture --out file/out " + frames, 5, "can't be made", ">file"},
      {"no room for a frame", "capture --out out " + frames, 5, "can't be written: File too large",
       "trap '' XFSZ; ulimit -f 1"},
      {"nobody reads the output", "capture --progress never " + frames + " >/dev/full", 5,
       "Standard output can't be written"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    HostRun run;
    const HostResult result = run.Run(row.arguments, row.before);
    EXPECT_EQ(result.exit, row.exit) << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.sentence));
  }
}

TEST(HostProgram, TellsTheDriverWhatTheCommandLineAndFilesSay) {
  HostRun run;
  const std::string list = run.File("list.json", R"([
      {"address": "127.0.0.3", "group": 2, "codec": "mpeg4", "size": "640x480", "interval": 100, "quality": 80,
       "device": {"model": "key", "ptz": true}, "settings": {"1": "2000", "3": "0"}}])");
  const std::string file = run.File("file.json", R"({"address": "127.0.0.2", "port": 8080,
       "device": {"model": "0"}, "settings": {"2": "1", "8": "64,e", "9": "001122334455"}})");
  const std::string credentials = run.File("key.json", R"({"user": "all", "password": "secret",
       "cameras": {"127.0.0.2": {"user": "one", "password": "own"}}})",
                                           true);
  const HostResult result = run.Run("--credentials " + credentials + " capture --frames 1 --cameras " + list +
                                    " --camera-file " + file + ",fps=30,standard=ntsc");
  EXPECT_EQ(result.exit, 0) << result.err;
  const std::string log = run.DriverLog();
  EXPECT_THAT(log, HasSubstr("open 127.0.0.3:80 codec 2 login all/secret 2000 2 0 - - - - - -\n"));
  EXPECT_THAT(
      log, HasSubstr("open 127.0.0.2:8080 codec 1 login one/own 5000 1 0 16 4 3000 256 64,e 001122334455\n"));
  EXPECT_THAT(log, HasSubstr("start 0 640x480 interval 100 quality 80\n"));
  EXPECT_THAT(log, HasSubstr("start 0 720x576 interval 33 quality 60\n"));
  EXPECT_EQ((result.out + result.err).find("secret"), std::string::npos);
}

TEST(HostProgram, ReportsEachStreamAsOneJsonLine) {
  HostRun run;
  const HostResult result = run.Run(
      "--json capture --frames 6 --camera 127.0.0.1,group=2,size=320x240,name=Yard,model='7 8 8 11 12 13' "
      "--camera 127.0.0.2,group=1,codec=mpeg4,size=176x144,name=Gate,model='key inter inter inter key inter'");
  EXPECT_EQ(result.exit, 0) << result.err;
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
  EXPECT_EQ(last["reason"], "frames");
  EXPECT_EQ(last["droppedByKernel"], 0);

  const auto facts = [](const json& stream, std::initializer_list<const char*> keys) {
    json picked;
    for (const char* key : keys) {
      picked[key] = stream.at(key);
    }
    return picked;
  };
  EXPECT_EQ(facts(streams["Yard"], {"address", "group", "codec", "width", "height", "frames", "keyFrames",
                                    "counted", "lost", "doubled", "damaged", "refused"}),
            json::parse(R"({"address": "127.0.0.1", "group": "2", "codec": "MJPEG", "width": 320, "height": 240,
                "frames": 6, "keyFrames": 6, "counted": 6, "lost": 2, "doubled": 1, "damaged": 0, "refused": 0})"));
  EXPECT_EQ(facts(streams["Gate"], {"codec", "frames", "keyFrames", "bytes", "counted", "lost", "doubled"}),
            json::parse(R"({"codec": "MPEG-4", "frames": 6, "keyFrames": 2, "bytes": 34, "counted": 0,
                "lost": null, "doubled": null})"));
  EXPECT_GE(streams["Yard"]["firstFrameMs"].get<double>(), 0);
}

TEST(HostProgram, KeepsFramesByteForByte) {
  HostRun run;
  const HostResult result = run.Run(
      "capture --frames 5 --out out --keep every 2 --camera "
      "'127.0.0.1,group=2,size=320x240,name=Back/yard,model=0 1 2 3 4' "
      "--camera '127.0.0.2,group=1,codec=mpeg4,size=176x144,name=Gate,model=key inter key inter inter'");
  ASSERT_EQ(result.exit, 0) << result.err;
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(run.Folder() / "out")) {
    if (entry.is_regular_file()) {
      files.push_back(std::filesystem::relative(entry.path(), run.Folder() / "out"));
    }
  }
  EXPECT_THAT(files, testing::UnorderedElementsAre("1-Back-yard/000001.jpg", "1-Back-yard/000003.jpg",
                                                   "1-Back-yard/000005.jpg", "1-Back-yard/frames.csv",
                                                   "2-Gate/stream.m4v", "2-Gate/frames.csv",
                                                   "contact-sheet.png", "report.txt", "report.json"));
  const std::string key("\0\0\1\xB0key", 7);
  const std::string inter("\0\0\1\xB6i", 5);
  EXPECT_EQ(run.Read("out/2-Gate/stream.m4v"), key + inter + key + inter + inter);
  const std::string jpeg = run.Read("out/1-Back-yard/000003.jpg");
  EXPECT_EQ(jpeg.substr(0, 2), "\xFF\xD8");
  EXPECT_EQ(jpeg.substr(jpeg.size() - 2), "\xFF\xD9");
  const std::string index = run.Read("out/2-Gate/frames.csv");
  EXPECT_THAT(index, HasSubstr(",5,0,176,144,stream.m4v,7,\n")) << "the second frame";
  EXPECT_THAT(run.Read("out/1-Back-yard/frames.csv"), HasSubstr(",1,320,240,000003.jpg,,2\n"));
}

TEST(HostProgram, EndsCleanlyOnEachStopSignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    HostRun run;
    run.Start(std::string("--json capture --out out ") + kCamera + "'0 1 2'");
    ASSERT_TRUE(run.WaitForOutput("\"frames\":3"));
    run.Signal(signal);
    const HostResult result = run.Finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"reason\":\"signal\""));
    EXPECT_THAT(run.DriverLog(), testing::EndsWith("stop\nclose\ndelete\n"));
    EXPECT_TRUE(std::filesystem::exists(run.Folder() / "out/1-Yard/000003.jpg"));
    EXPECT_TRUE(std::filesystem::exists(run.Folder() / "out/contact-sheet.png"));
  }
}

}  // namespace
