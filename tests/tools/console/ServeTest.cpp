// kolvex-host serve with the library and simulated cameras, seen from a program at its doors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <numeric>
#include <thread>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "ConsoleServer.h"
#include "simcam/CameraFarm.h"
#include "support/Eventually.h"
#include "tools/host/HostRun.h"

namespace {

using kolvex_test::Client;
using kolvex_test::Eventually;
using kolvex_test::HostRun;
using kolvex_test::HttpReply;
using kolvex_test::ProgramResult;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

constexpr int kPort = 8088;

HttpReply Get(const std::string& path) { return kolvex_test::Get(kPort, path); }
HttpReply Post(const std::string& path, const nlohmann::json& body) {
  return kolvex_test::Post(kPort, path, body.dump());
}

/// A picture once the stream has begun, which may take a busy machine longer than one request waits.
HttpReply Snapshot(const std::string& camera) {
  HttpReply reply;
  Eventually([&] {
    reply = Get("/cameras/" + camera + "/snapshot.jpg");
    return reply.status == 200;
  });
  return reply;
}

nlohmann::json State(const std::string& camera) {
  return nlohmann::json::parse(Get("/cameras/" + camera).body);
}

/// A server of two simulated cameras, the second one in MPEG-4.
struct ConsoleServe : testing::Test {
  void Start(const std::string& arguments = "") {
    run.Start("serve --camera 127.0.1.1,name=Yard --camera 127.0.2.1,name=Quay,codec=mpeg4 " + arguments);
    ASSERT_TRUE(run.WaitForOutput("http://127.0.0.1:8088/"));
  }
  void End() {
    run.Signal(SIGTERM);
    const ProgramResult result = run.Finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.err, "");
  }

  simcam::CameraFarm farm{1};
  simcam::SimulatedCamera& yard = farm.Add("group=1,address=127.0.1.1,serial=2,inputs=1,outputs=2");
  simcam::SimulatedCamera& quay = farm.Add("group=2,address=127.0.2.1");
  HostRun run;
};

/// What is in a Matroska file: codec, size, and the times of the frames in milliseconds.
struct MatroskaFile {
  explicit MatroskaFile(const std::string& path) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) == 0 && context->nb_streams == 1) {
      codec = avcodec_get_name(context->streams[0]->codecpar->codec_id);
      width = context->streams[0]->codecpar->width;
      extra = context->streams[0]->codecpar->extradata_size;
      AVPacket* packet = av_packet_alloc();
      while (av_read_frame(context, packet) == 0) {
        times.push_back(packet->pts);
        keys += (packet->flags & AV_PKT_FLAG_KEY) != 0 ? 1 : 0;
        av_packet_unref(packet);
      }
      av_packet_free(&packet);
      avformat_close_input(&context);
    }
  }

  std::string codec;
  int width = 0;
  int extra = 0;
  std::size_t keys = 0;
  std::vector<std::int64_t> times;
};

TEST_F(ConsoleServe, GivesPicturesOfBothCodecsAndStreamsThatAreCopies) {
  Start();
  for (const char* camera : {"Yard", "Quay"}) {
    EXPECT_THAT(Snapshot(camera).body, testing::StartsWith("\xff\xd8")) << camera;
  }
  struct Row {
    const char* camera;
    const char* codec;
    bool hasHeaders;
  };
  for (const Row& row : {Row{"Yard", "mjpeg", false}, Row{"Quay", "mpeg4", true}}) {
    Client client(kPort, std::string("/cameras/") + row.camera + "/stream.mkv");
    EXPECT_THAT(client.ReadUntil("\r\n\r\n"), HasSubstr("Content-Type: video/x-matroska"));
    run.Write("stream.mkv", client.Read(row.hasHeaders ? 300'000 : 1'500'000));
    const MatroskaFile file(run.Folder() / "stream.mkv");
    EXPECT_EQ(file.codec, row.codec);
    EXPECT_TRUE(Eventually([&] { return State(row.camera)["width"] == file.width; })) << file.width;
    EXPECT_EQ(file.extra > 0, row.hasHeaders);
    ASSERT_GT(file.times.size(), 10U);
    EXPECT_TRUE(std::is_sorted(file.times.begin(), file.times.end()));
    EXPECT_EQ(file.times.front(), 0);
    // 40 from the camera; a busy machine loses frames, or gets some late.
    EXPECT_THAT(static_cast<double>(file.times.back()) / static_cast<double>(file.times.size() - 1),
                testing::AllOf(testing::Gt(10), testing::Lt(300)));
    EXPECT_EQ(file.keys == file.times.size(), !row.hasHeaders);
  }
  End();
}

/// When the first picture came that the wall gives of this camera now, milliseconds since 1970; 0 when none comes.
std::int64_t FirstPictureOfTheWall(const std::string& camera) {
  const auto number = [](const std::string& bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), std::int64_t{0},
                           [](std::int64_t all, unsigned char each) { return all * 256 + each; });
  };
  Client client(kPort, "/wall?camera=" + camera);
  client.ReadUntil("\r\n\r\n");
  for (;;) {
    const std::string message = client.Read(static_cast<std::size_t>(number(client.Read(4))));
    if (message.empty() || message[0] == 'P') {
      return message.size() < 9 ? 0 : number(message.substr(1, 8));
    }
  }
}

TEST_F(ConsoleServe, BeginsWithNoPictureThatWasMadeForAnEarlierViewer) {
  Start();
  ASSERT_GT(FirstPictureOfTheWall("Quay"), 0);
  ASSERT_TRUE(Eventually([] { return State("Quay")["viewers"] == 0; }));
  const auto frames = State("Quay")["frames"].get<int>();
  // More than a second of them.
  ASSERT_TRUE(Eventually([&] { return State("Quay")["frames"].get<int>() > frames + 50; }));
  const auto last = State("Quay")["lastFrame"].get<std::int64_t>();
  EXPECT_GT(FirstPictureOfTheWall("Quay"), last - 1100);
  End();
}

TEST_F(ConsoleServe, StopsTheHeadWhenItHearsNothingAndAtItsEnd) {
  Start();
  ASSERT_TRUE(Eventually([] { return State("Yard")["head"] == "ready"; }));
  double from = yard.Status().head.pan;
  const auto moves = [&] { return yard.Status().head.moving; };
  const auto hasMoved = [&] { return moves() || yard.Status().head.pan != from; };
  const nlohmann::json left = {{"move", "left"}, {"speed", 6}};
  EXPECT_EQ(Post("/cameras/Yard/move", left).status, 200);
  ASSERT_TRUE(Eventually(hasMoved));
  ASSERT_TRUE(Eventually([&] { return !moves(); }));
  from = yard.Status().head.pan;
  EXPECT_EQ(Post("/cameras/Yard/move", left).status, 200);
  ASSERT_TRUE(Eventually(hasMoved));
  EXPECT_EQ(Post("/cameras/Quay/move", left).status, 409) << "group 2 has no head";
  End();
  EXPECT_TRUE(Eventually([&] { return !moves(); }));
}

TEST_F(ConsoleServe, SwitchesOutputsAndSeesInputs) {
  Start();
  EXPECT_EQ(State("Yard")["outputs"][1]["state"], "unknown") << "nothing was touched yet";
  EXPECT_EQ(Post("/cameras/Yard/outputs", {{"output", 2}, {"state", "high"}}).status, 200);
  EXPECT_TRUE(Eventually([&] { return yard.Status().outputs == std::vector<bool>{false, true}; }));
  EXPECT_EQ(Post("/cameras/Yard/outputs", {{"output", 3}, {"state", "high"}}).status, 404);
  ASSERT_TRUE(Eventually([] { return State("Yard")["inputs"][0]["state"] == "low"; }));
  yard.Control("input1=1");
  EXPECT_TRUE(Eventually([] { return State("Yard")["inputs"][0]["state"] == "high"; }));
  EXPECT_THAT(Get("/metrics").body, HasSubstr("kolvex_input_changes_total{camera=\"Yard\",input=\"1\"} 1\n"));
  yard.Control("http=refuse");
  EXPECT_TRUE(Eventually([] {
    // A refusal that is heard too late is the next request's.
    return Post("/cameras/Yard/outputs", {{"output", 2}, {"state", "low"}}).status == 502 &&
           State("Yard")["outputs"][1]["state"] == "unknown";
  }));
  End();
}

TEST_F(ConsoleServe, GoesOnWhenACameraVanishesAndSaysWhy) {
  Start();
  ASSERT_EQ(Snapshot("Yard").status, 200);
  Client viewer(kPort, "/cameras/Yard/stream.mjpeg");
  std::atomic<std::uint64_t> shown{0};
  const std::jthread reader([&](const std::stop_token& stop) {
    while (!stop.stop_requested() && viewer.ReadUntil("\xff\xd8") != "") {
      ++shown;
    }
  });
  ASSERT_TRUE(Eventually([&] { return shown > 0; }));
  yard.Control("http=refuse&rtsp=refuse&silent=1");
  const auto why = [] { return State("Yard")["why"]; };
  ASSERT_TRUE(Eventually([&] { return why().is_string(); }));
  EXPECT_THAT(why().get<std::string>(), HasSubstr("127.0.1.1"));
  EXPECT_EQ(Get("/cameras/Yard/snapshot.jpg").status, 503);
  EXPECT_EQ(Snapshot("Quay").status, 200);
  const std::uint64_t sent = yard.Status().counters.framesSent;
  yard.Control("heal=1");
  ASSERT_TRUE(Eventually([&] { return why().is_null(); }));
  EXPECT_GE(State("Yard")["restarts"], 1);
  EXPECT_TRUE(Eventually([&] { return shown > sent; })) << "the stream that was open shows it again";
  End();
}

TEST_F(ConsoleServe, AddsAndKeepsCamerasWithoutEverTellingAPassword) {
  run.Start("serve --folder kept");
  ASSERT_TRUE(run.WaitForOutput("http://127.0.0.1:8088/"));
  struct Row {
    nlohmann::json body;
    int status;
    const char* says;
  };
  const Row rows[] = {
      {{{"address", "127.0.1.1"}, {"user", "admin"}, {"password", "wrong one"}},
       502,
       "wants another user name or password."},
      {{{"address", "admin:secret@127.0.1.1"}}, 400, "fields of their own"},
      {{{"address", "127.0.9.9"}}, 502, "127.0.9.9"},
      {{{"address", "::1"}}, 400, "IPv6"},
      {{{"address", "127.0.1.1"}, {"codec", "h264"}, {"user", "admin"}, {"password", "kolvex"}}, 400, "h264"},
      {{{"address", "127.0.1.1"}, {"name", "Yard"}, {"user", "admin"}, {"password", "kolvex"}},
       201,
       "\"kept\":true"},
      {{{"address", "127.0.1.1"}, {"name", "Yard"}, {"user", "admin"}, {"password", "kolvex"}},
       409,
       "of that name"},
  };
  for (const Row& row : rows) {
    const HttpReply reply = Post("/cameras", row.body);
    EXPECT_EQ(reply.status, row.status) << row.body << "\n" << reply.body;
    EXPECT_THAT(reply.body, HasSubstr(row.says));
    EXPECT_THAT(reply.body, Not(testing::ContainsRegex("wrong one|\"kolvex\"|secret|--[a-z]|KOLVEX_")))
        << row.body;
  }
  ASSERT_EQ(Snapshot("Yard").status, 200);
  EXPECT_EQ(Post("/cameras/Yard", {{"action", "rename"}, {"name", "Gate"}}).status, 200);
  for (const char* path : {"/cameras", "/cameras/Gate", "/cameras/Gate/history", "/metrics"}) {
    EXPECT_THAT(Get(path).body, Not(HasSubstr("\"kolvex\""))) << path;
  }
  End();
  EXPECT_THAT(run.Read("kept/Gate.json"), HasSubstr("127.0.1.1"));
  EXPECT_THAT(run.Read("kept/credentials.json"), HasSubstr("\"kolvex\""));

  run.Start("serve --folder kept");
  ASSERT_TRUE(run.WaitForOutput("http://127.0.0.1:8088/"));
  EXPECT_EQ(Snapshot("Gate").status, 200) << "after a new start";
  EXPECT_EQ(Post("/cameras/Gate", {{"action", "remove"}}).status, 200);
  EXPECT_EQ(Get("/cameras/Gate").status, 404);
  End();
  EXPECT_EQ(run.Read("kept/Gate.json"), "(none)");
  EXPECT_THAT(run.Read("kept/credentials.json"), Not(HasSubstr("\"kolvex\"")));
}

TEST_F(ConsoleServe, SaysInASentenceWhyItDoesNotServe) {
  const kolvex_console::Listening taken = kolvex_console::OpenListening("127.0.0.1:9000");
  struct Row {
    const char* arguments;
    int exit;
    const char* says;
  };
  run.Write("file", "");
  const Row rows[] = {
      {"--listen [::1]:9000 --listen 127.9.9.9:9000 --listen 127.0.0.1:9000", 5,
       "can't listen at 127.0.0.1:9000: Address already in use"},
      {"--listen 0.0.0.0:9001", 1, "wants a login there"},
      {"--listen 127.0.0.1:9001 --listen [::]:9002", 1, "wants a login there"},
      {"--listen localhost:80", 1, "is no address to listen at"},
      {"--listen 127.0.0.1", 1, "is no address to listen at"},
      {"--listen 127.0.0.1:80x", 1, "is no address to listen at"},
      {"--listen 127.0.0.1:65536", 1, "is no address to listen at"},
      {"--folder file", 5, "can't be written"},
      {"--login none", 1, "none can't be read"},
      {"--camera-file none.json", 1, "none.json"},
      {"--set-password", 1, "needs --folder or --login"},
  };
  for (const Row& row : rows) {
    const ProgramResult result = run.Run(std::string("serve ") + row.arguments);
    EXPECT_EQ(result.exit, row.exit) << row.arguments << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.says)) << row.arguments;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  close(taken.descriptor);

  const ProgramResult set = run.Run("--user guard serve --folder fresh --set-password",
                                    "export KOLVEX_CONSOLE_PASSWORD='open sesame'");
  EXPECT_EQ(set.exit, 0) << set.err;
  run.Start("serve --listen 0.0.0.0:8088 --folder fresh");
  ASSERT_TRUE(run.WaitForOutput("http://0.0.0.0:8088/"));
  EXPECT_EQ(Get("/").status, 401);
  End();
}

TEST(ConsoleSocket, IsTakenWhenItWasHandedOver) {
  // Before anything else is opened: a shell moves descriptors of one digit only.
  const kolvex_console::Listening door = kolvex_console::OpenListening("127.0.0.1:8088");
  ASSERT_LT(door.descriptor, 10);
  ASSERT_EQ(fcntl(door.descriptor, F_SETFD, 0), 0);
  HostRun run;
  run.Start("serve", "exec 3<&" + std::to_string(door.descriptor) + "\nexport LISTEN_FDS=1 LISTEN_PID=$$");
  ASSERT_TRUE(run.WaitForOutput("http://127.0.0.1:8088/"));
  close(door.descriptor);
  EXPECT_EQ(Get("/cameras").body, "[]\n");
  run.Signal(SIGTERM);
  EXPECT_EQ(run.Finish().exit, 0);
}

}  // namespace
