// What the doors answer to programs that use them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "ConsoleServer.h"
#include "hub/Viewers.h"
#include "support/Eventually.h"
#include "support/TempFolder.h"

namespace {

using namespace kolvex_console;
using kolvex_test::Client;
using kolvex_test::ConsoleServer;
using kolvex_test::HttpReply;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

TEST(ConsoleDoors, AnswerEachRequestWithAClearStatusAndSentence) {
  struct Row {
    const char* method;
    const char* path;
    const char* body;
    int status;
    const char* says;
    const char* asked;  // of the camera
  };
  const Row rows[] = {
      {"GET", "/cameras", "", 200, R"([{"name":"Yard","why")", ""},
      {"GET", "/cameras/Yard", "", 200, R"("name":"Yard")", ""},
      {"GET", "/cameras/Nobody", "", 404, "no camera of that name", ""},
      {"GET", "/cameras/Nobody/stream.mkv", "", 404, "no camera of that name", ""},
      {"GET", "/cameras/Yard/nothing", "", 404, "nothing by that path", ""},
      {"GET", "/nothing.js", "", 404, "nothing by that path", ""},
      {"POST", "/cameras/Yard/snapshot.jpg", "{}", 405, "it takes GET", ""},
      {"POST", "/metrics", "{}", 405, "it takes GET, HEAD", ""},
      {"POST", "/wall", R"({"viewer":"me","shown":[1]})", 404, "no viewer", ""},
      {"POST", "/wall", R"({"shown":[1]})", 400, "lacks", ""},
      {"POST", "/app.js", "{}", 405, "it takes GET, HEAD", ""},
      {"GET", "/wall?camera=Nobody", "", 404, "no camera of that name", ""},
      {"POST", "/cameras/Yard/move", R"({"move":"left","speed":3})", 200, "left", "move left 3\n"},
      {"POST", "/cameras/Yard/move", R"({"move":"stop"})", 200, "stop", "move stop 8\n"},
      {"POST", "/cameras/Yard/move", R"({"move":"left","speed":17})", 400, "from 1 to 16", ""},
      {"POST", "/cameras/Yard/move", R"({"move":"left","speed":"fast"})", 400, "from 1 to 16", ""},
      {"POST", "/cameras/Yard/move", R"({"move":"left","speed":1.5})", 400, "from 1 to 16", ""},
      {"POST", "/cameras/Yard/move", R"({"speed":3})", 400, "lacks", ""},
      {"POST", "/cameras/Yard/move", R"({"move":7})", 400, "must be a text", ""},
      {"POST", "/cameras/Yard/move", R"({"move":"left")", 400, "JSON object", ""},
      {"POST", "/cameras/Yard/move", R"(["left"])", 400, "JSON object", ""},
      {"POST", "/cameras/Yard/move", "", 400, "JSON object", ""},
      {"POST", "/cameras/Nobody/move", R"({"move":"left"})", 404, "no camera", ""},
      {"POST", "/cameras/Yard/outputs", R"({"output":2,"state":"high"})", 200, "done", "output 2 high\n"},
      {"POST", "/cameras/Yard/outputs", R"({"output":0,"state":"high"})", 400, "from 1 to 256", ""},
      {"POST", "/cameras/Yard/outputs", R"({"output":2,"state":"on"})", 400, "high", ""},
      {"POST", "/cameras/Yard/positions", R"({"action":"store","name":"Gate <b>"})", 200, "done",
       "store Gate <b>\n"},
      {"POST", "/cameras/Yard/positions", "{\"action\":\"go\",\"name\":\"a\\u0000b\"}", 400, "control", ""},
      {"POST", "/cameras/Yard/positions", R"({"action":"store","name":"\u200b"})", 400, "something to see", ""},
      {"POST", "/cameras/Yard/positions", R"({"action":"burn","name":"Gate"})", 400, "store", ""},
      {"POST", "/cameras/Yard/fault", R"({"fault":"lose=1"})", 409, "no simulated camera", "fault lose=1\n"},
      {"POST", "/cameras", R"({"address":"192.0.2.7","name":"Gate","password":"x"})", 201, "Gate", ""},
      {"POST", "/cameras", R"({"address":"192.0.2.7","name":" "})", 400, "something to see", ""},
      {"POST", "/cameras", R"({"address":"192.0.2.7","name":".."})", 400, "something to see", ""},
      {"POST", "/cameras", "{\"address\":\"192.0.2.7\",\"name\":\"a\\u0085b\"}", 400, "control", ""},
      {"POST", "/cameras", R"({"address":"full"})", 507, "can't be written", ""},
      {"POST", "/cameras", R"({"name":"Gate"})", 400, "lacks", ""},
      {"GET", "/cameras/Yard/positions/Square", "", 404, "no picture", ""},
      {"POST", "/cameras/Yard", R"({"action":"rename","name":"Yard"})", 409, "of that name", ""},
      {"POST", "/cameras/Yard", R"({"action":"rename","name":"\u00a0\u3000"})", 400, "something to see", ""},
      {"POST", "/cameras/Yard", R"({"action":"explode"})", 400, "rename", ""},
      {"POST", "/cameras/Yard", R"({"action":"rename","name":"Gate / <i>"})", 200, "Gate / <i>", ""},
      {"GET", "/cameras/Gate%20%2F%20%3Ci%3E", "", 200, "Gate / <i>", ""},
      {"GET", "/cameras/Yard", "", 404, "no camera", ""},
  };
  ConsoleServer server;
  auto& camera = server.Add("Yard");
  for (const Row& row : rows) {
    const std::string what = std::string(row.method) + " " + row.path + " " + row.body;
    const HttpReply reply =
        row.method == std::string("GET") ? server.Get(row.path) : server.Post(row.path, row.body);
    EXPECT_EQ(reply.status, row.status) << what << "\n" << reply.body;
    EXPECT_THAT(reply.body, HasSubstr(row.says)) << what;
    EXPECT_EQ(camera.TakeTranscript(), row.asked) << what;
  }
}

TEST(ConsoleDoors, KeepAConnectionAndAnswerHeadWithoutABody) {
  ConsoleServer server;
  server.Add("Yard");
  Client client(server.Port());
  for (const char* method : {"HEAD", "GET", "HEAD"}) {
    client.Send(std::string(method) + " /cameras HTTP/1.1\r\nHost: localhost\r\n\r\n");
    const HttpReply reply = client.Receive(method == std::string("GET"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.head, HasSubstr("Content-Length: ")) << "of what GET would give";
  }
  client.Send("HEAD /cameras/Yard/stream.mjpeg HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(client.Receive(false).head, HasSubstr("multipart/x-mixed-replace"));
  EXPECT_TRUE(client.Ends());
}

TEST(ConsoleDoors, GiveASnapshotThatIsFreshOrSayWhyThereIsNone) {
  ConsoleServer server;
  auto& camera = server.Add("Yard");
  const std::string picture("\xff\xd8 bytes \0 as they are \xff\xd9", 24);
  EXPECT_TRUE(kolvex_test::Eventually([&] {
    camera.Show(picture, milliseconds(500));  // too old when this machine is too busy
    return server.Get("/cameras/Yard/snapshot.jpg").body == picture;
  }));

  // An old one isn't given; the next one is waited for.
  camera.Show("old", milliseconds(5000));
  Client client(server.Port(), "/cameras/Yard/snapshot.jpg");
  EXPECT_TRUE(kolvex_test::Eventually([&] { return camera.Video()->Lookers() == 1; }))
      << "who waits is somebody who looks";
  server.Show(camera, picture);
  const HttpReply reply = client.Receive();
  EXPECT_EQ(reply.body, picture);
  EXPECT_THAT(reply.head, HasSubstr("Content-Type: image/jpeg"));

  camera.Show("old", milliseconds(60'000));
  const HttpReply none = server.Get("/cameras/Yard/snapshot.jpg");
  EXPECT_EQ(none.status, 503);
  EXPECT_THAT(none.body, HasSubstr("It is unplugged."));
  EXPECT_TRUE(kolvex_test::Eventually([&] { return camera.Video()->Lookers() == 0; }));
}

TEST(ConsoleDoors, StreamMjpegAsItIsInPartsWithTypeAndLength) {
  ConsoleServer server;
  auto& camera = server.Add("Yard");
  camera.Show("old", milliseconds(60'000));  // no part says its age, so the stream begins with a fresh one
  Client client(server.Port(), "/cameras/Yard/stream.mjpeg");
  const std::string head = client.ReadUntil("\r\n\r\n");
  EXPECT_THAT(head, HasSubstr("Content-Type: multipart/x-mixed-replace; boundary=kolvex-picture\r\n"));
  EXPECT_TRUE(kolvex_test::Eventually([&] { return camera.Video()->Lookers() == 1; }));
  server.Show(camera, "one");
  const auto part = [](const std::string& picture) {
    return "--kolvex-picture\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture.size()) +
           "\r\n\r\n" + picture + "\r\n";
  };
  EXPECT_EQ(client.Read(part("one").size()), part("one"));
  const std::string next("\r\n--kolvex-picture\0\xff", 20);
  server.Show(camera, next);
  EXPECT_EQ(client.Read(part(next).size()), part(next));
  server.site->Remove("Yard");
  EXPECT_TRUE(client.Ends()) << "the camera has gone";
}

std::uint64_t Number(const std::string& bytes) {
  std::uint64_t number = 0;
  for (const char each : bytes) {
    number = number << 8U | static_cast<unsigned char>(each);
  }
  return number;
}

TEST(ConsoleDoors, GiveTheWholeWallOverOneConnection) {
  ConsoleServer server;
  auto& yard = server.Add("Yard");
  auto& gate = server.Add("Gate <script>");
  server.Show(yard, "yard picture");
  server.Show(gate, std::string(300'000, 'g'));
  Client client(server.Port(), "/wall");
  client.ReadUntil("\r\n\r\n");
  std::map<std::string, std::string> pictures;
  std::string events;
  for (int i = 0; i < 20 && (pictures.size() < 2 || events.find("tick") == events.npos); ++i) {
    const std::string message = client.Read(Number(client.Read(4)));
    ASSERT_FALSE(message.empty());
    if (message[0] == 'E') {
      events += nlohmann::json::parse(message.substr(1)).dump() + "\n";
      continue;
    }
    ASSERT_EQ(message[0], 'P');
    const auto now = std::chrono::system_clock::now().time_since_epoch() / milliseconds(1);
    EXPECT_NEAR(static_cast<double>(Number(message.substr(1, 8))), static_cast<double>(now), 60'000);
    const std::size_t length = Number(message.substr(13, 2));
    pictures[message.substr(15, length)] = message.substr(15 + length);
  }
  EXPECT_EQ(pictures["Yard"], "yard picture");
  EXPECT_EQ(pictures["Gate <script>"], std::string(300'000, 'g'));
  EXPECT_THAT(events, HasSubstr(R"({"event":"cameras","names":["Yard","Gate <script>"]})"));
  EXPECT_THAT(events, HasSubstr(R"("event":"camera")"));
}

/// A viewer of the wall that answers.
class Answering {
 public:
  Answering(const ConsoleServer& server, const std::string& viewer)
      : server_(server), viewer_(viewer), client_(server.Port(), "/wall?viewer=" + viewer) {
    client_.ReadUntil("\r\n\r\n");
  }
  /// The next picture, whatever is told before it.
  std::string Next() {
    std::string message;
    do {
      message = client_.Read(Number(client_.Read(4)));
    } while (!message.empty() && message[0] == 'E');
    if (message.empty()) {
      return "nothing";
    }
    number = Number(message.substr(9, 4));
    return message.substr(15 + Number(message.substr(13, 2)));
  }
  /// Says that a picture has been shown; gives the status.
  int Answer(std::uint64_t shown) const {
    return server_.Post("/wall", R"({"viewer":")" + viewer_ + R"(","shown":[)" + std::to_string(shown) + "]}")
        .status;
  }

  std::uint64_t number = 0;  // of the last picture

 private:
  const ConsoleServer& server_;
  const std::string viewer_;
  Client client_;
};

TEST(ConsoleWall, SendsAPageThatAnswersNoMoreThanAFewPicturesAhead) {
  using Clock = std::chrono::steady_clock;
  ConsoleServer server;
  auto& yard = server.Add("Yard");
  auto& gate = server.Add("Gate");
  auto page = std::make_optional<Answering>(server, "me");
  const auto gets = [&](kolvex_test::FakeCamera& camera, const std::string& picture) {
    server.Show(camera, picture);
    EXPECT_EQ(page->Next(), picture);
    return page->number;
  };
  // Cameras come in turns, so the second picture of Gate comes after any of Yard that may be sent.
  const auto getsOnlyGate = [&](const char* why) {
    for (const char* mark : {"mark", "second mark"}) {
      EXPECT_EQ(page->Answer(gets(gate, mark)), 200) << why;
    }
  };

  gets(yard, "1");
  gets(yard, "2");
  const auto begun = Clock::now();
  EXPECT_EQ(page->Answer(gets(yard, "3")), 200) << "for all three";
  const auto fastest = Clock::now() - begun;

  gets(yard, "4");
  gets(yard, "5");
  const std::uint64_t last = gets(yard, "6");
  const auto sent = Clock::now();
  server.Show(yard, "7");
  getsOnlyGate("three are unanswered");
  for (const char* body :
       {R"({"viewer":"me"})", R"({"viewer":"me","shown":6})", R"({"viewer":"me","shown":[-1]})",
        R"({"viewer":"me","shown":[4294967296]})", R"({"viewer":"me","shown":["6"]})"}) {
    EXPECT_EQ(server.Post("/wall", body).status, 400) << body;
  }
  EXPECT_EQ(page->Answer(77'777), 200) << "that no picture has";
  const Answering other(server, "other");
  EXPECT_EQ(other.Answer(last), 200) << "another viewer's word";
  EXPECT_EQ(server.Get("/wall?viewer=me").status, 409) << "nobody takes a viewer's place";
  getsOnlyGate("three are still unanswered");

  server.Show(yard, "8");
  EXPECT_TRUE(kolvex_test::Eventually([&] { return Clock::now() - sent > fastest + 2 * WallOutlet::kLate; }));
  EXPECT_EQ(page->Answer(last), 200);
  EXPECT_EQ(page->Next(), "8") << "the newest, and not what it has missed";
  const std::uint64_t single = page->number;
  server.Show(yard, "9");
  getsOnlyGate("answers come late, so one is under way at a time");
  EXPECT_EQ(page->Answer(single), 200);
  EXPECT_EQ(page->Next(), "9");

  page.reset();
  EXPECT_TRUE(kolvex_test::Eventually([&] { return server.Get("/wall?viewer=me").status == 200; }))
      << "a name is free when its viewer has left";
}

TEST(ConsoleDoors, TellEveryChangeAsServerSentEvents) {
  ConsoleServer server;
  server.Add("Yard");
  Client client(server.Port(), "/events");
  EXPECT_THAT(client.ReadUntil("\r\n\r\n"), HasSubstr("Content-Type: text/event-stream"));
  EXPECT_EQ(client.ReadUntil("\n\n"), "data: {\"event\":\"cameras\",\"names\":[\"Yard\"]}\n\n");
  server.site->Log("Yard", "line\nbreak <b> \xff");
  const std::string line = client.ReadUntil("<b>") + client.ReadUntil("\n\n");
  EXPECT_THAT(line, HasSubstr(R"(line\nbreak <b>)")) << "escaped, so that it stays one event";
  server.site->Rename("Yard", "Gate");
  EXPECT_THAT(client.ReadUntil("Gate"), HasSubstr("Gate"));
}

TEST(ConsoleViewers, AreHeldUpByNobodyAndFillNoMemory) {
  ConsoleServer server;
  auto& camera = server.Add("Yard");
  // One that never reads: its buffers are small, so that it is soon full.
  Client sleeper(server.Port(), "/cameras/Yard/stream.mjpeg", 4096);
  Client sleepingWall(server.Port(), "/wall", 4096);
  Client viewer(server.Port(), "/cameras/Yard/stream.mjpeg");
  EXPECT_TRUE(kolvex_test::Eventually([&] { return camera.Video()->Lookers() == 3; }));

  std::vector<std::weak_ptr<const void>> memory;
  for (int i = 0; i < 100; ++i) {
    const std::string mark = "picture " + std::to_string(i) + ".";
    memory.push_back(camera.Show(std::string(100'000, 'x') + mark));
    server.site->Wake();
    ASSERT_THAT(viewer.ReadUntil(mark), HasSubstr(mark)) << "each picture reaches who keeps up";
  }
  // The newest, and for each sleeper the one that it had begun to get.
  EXPECT_TRUE(kolvex_test::Eventually([&] {
    return std::count_if(memory.begin(), memory.end(), [](const auto& each) { return !each.expired(); }) <= 3;
  }));

  // Awake again, it gets what it had begun and then the newest, not what it has missed.
  sleeper.ReadUntil("picture 99.");
  std::string rest;
  server.Show(camera, "and now");
  rest = sleeper.ReadUntil("and now");
  EXPECT_THAT(rest, HasSubstr("and now"));
}

TEST(ConsoleViewers, ThatTakeNothingForLongAreEnded) {
  ServerOptions options;
  options.limits.stall = milliseconds(300);
  options.limits.tick = milliseconds(50);
  ConsoleServer server(std::move(options));
  auto& camera = server.Add("Yard");
  Client sleeper(server.Port(), "/cameras/Yard/stream.mjpeg", 4096);
  EXPECT_TRUE(kolvex_test::Eventually([&] { return camera.Video()->Lookers() == 1; }));
  EXPECT_TRUE(kolvex_test::Eventually([&] {
    server.Show(camera, std::string(200'000, 'x'));
    return camera.Video()->Lookers() == 0;
  }));
  // The seat is given back a moment after the picture is let go.
  EXPECT_TRUE(kolvex_test::Eventually([&] { return server.Server().Streams() == 0; }));
}

TEST(ConsoleMetrics, ArePrometheusText) {
  ConsoleServer server;
  auto& camera = server.Add("Yard \"north\" \\ gate");
  camera.counts = {.frames = 7,
                   .bytes = 123'456'789'012,
                   .gaps = 1,
                   .restarts = 2,
                   .noData = 3,
                   .lastFrameAge = 0.25,
                   .inputChanges = {{1, 4}, {2, 0}}};
  server.Add("Gate");
  const HttpReply reply = server.Get("/metrics");
  EXPECT_THAT(reply.head, HasSubstr("Content-Type: text/plain; version=0.0.4"));
  for (const char* line : {
           "# TYPE kolvex_frames_total counter\n",
           "kolvex_frames_total{camera=\"Yard \\\"north\\\" \\\\ gate\"} 7\n",
           "gate\"} 123456789012\n",
           "kolvex_last_frame_age_seconds{camera=\"Yard \\\"north\\\" \\\\ gate\"} 0.250000\n",
           "gate\",input=\"1\"} 4\n",
           "kolvex_kernel_drops_total 17\n",
       }) {
    EXPECT_THAT(reply.body, HasSubstr(line));
  }
  EXPECT_THAT(reply.body, Not(HasSubstr("age_seconds{camera=\"Gate\"}"))) << "no frame yet";
  if (std::system("command -v promtool >/dev/null") != 0) {
    GTEST_SKIP() << "no promtool here: the text isn't checked by Prometheus itself";
  }
  const TempFolder folder;
  folder.Write("metrics", reply.body);
  EXPECT_EQ(std::system(("promtool check metrics <" + (folder / "metrics")).c_str()), 0);
}

}  // namespace
