#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "video/CBaseCameraChannel.h"
#include "video/ChannelFixture.h"

namespace kolvex_test {
namespace {

// Local UDP ports that somebody else has.
class TakenPorts {
 public:
  explicit TakenPorts(std::uint16_t first, std::uint16_t last = 0, std::uint16_t step = 1) {
    for (std::uint32_t port = first; port <= std::max(first, last); port += step) {
      const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      sockaddr_in local{};
      local.sin_family = AF_INET;
      local.sin_port = htons(static_cast<std::uint16_t>(port));
      EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof(local)), 0) << port;
      descriptors_.push_back(descriptor);
    }
  }
  ~TakenPorts() {
    for (const int descriptor : descriptors_) {
      close(descriptor);
    }
  }

 private:
  std::vector<int> descriptors_;
};

bool IsMethod(const std::string& request, const std::string& method) {
  return request.starts_with(method + " ");
}

TEST(Channel, GivesFramesFromBothGroupsInBothCodecsAndTakesItsLeave) {
  const struct {
    int group;
    std::uint32_t codec;
    const char* configuration;
    const char* fourCC;
  } rows[] = {
      {1, sarnevo::CodecMJPEG,
       "GET "
       "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9&fps=25&gopsize=1&mode=mjpeg&"
       "sequence=i\n",
       "JPEG"},
      {1, sarnevo::CodecMPEG4,
       "GET "
       "/multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&targetrate=3000&fps=25&gopsize=25&peakrate="
       "3000&const_qu=0&mode=mpeg4&sequence=ip\n",
       "DIVX"},
      {2, sarnevo::CodecMJPEG,
       "GET "
       "/SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mjpeg&Jpeg_Quality=4&Stream_Mode=0&Audio="
       "1\n",
       "JPEG"},
      {2, sarnevo::CodecMPEG4,
       "GET "
       "/SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mpeg4&Compression_Type=0&Bitrate=320&"
       "GOPSelect=1&Stream_Mode=0&Audio=1\n",
       "DIVX"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.configuration);
    ScriptedCamera camera(row.group);
    Host host;
    auto& capture = host.Open(camera, row.group, row.codec, SteadyTiming());
    camera.StartSending(row.codec == sarnevo::CodecMJPEG ? JpegFramePacket(row.group) : Mpeg4KeyFramePacket());
    ASSERT_TRUE(capture.StartCapture(3, &host.sink, &host.wanted));
    ASSERT_TRUE(host.log.WaitFor("OnFrame", 3)) << camera.log.Text();
    EXPECT_FALSE(capture.StartCapture(3, &host.sink, &host.wanted));  // undisturbed
    std::uint32_t status = 7;
    std::uint32_t extra = 7;
    char text[4] = "abc";
    EXPECT_TRUE(capture.GetChannelStatus(3, &status, &extra, text, sizeof(text)));
    EXPECT_EQ(status + extra + static_cast<unsigned char>(text[0]), 0U);
    ASSERT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 2));
    EXPECT_TRUE(capture.StopCapture(3));
    EXPECT_FALSE(capture.StopCapture(3));
    EXPECT_EQ(camera.log.Text(),
              std::string(row.configuration) + "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n");
    EXPECT_EQ(host.log.Count("AllocateFrame " + std::string(row.fourCC)), host.log.Count("ReleaseFrame"));
    EXPECT_EQ(host.allocator.Outstanding(), 0U);
    const std::size_t frames = host.log.Count("OnFrame");
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(host.log.Count("OnFrame"), frames);  // nothing runs any more
  }
}

TEST(Channel, RestartsASilentStreamWithoutANewConfiguration) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  camera.StartSending(JpegFramePacket(1));
  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  camera.StopSending();
  ASSERT_TRUE(camera.log.WaitFor("PLAY", 2));
  camera.StartSending(JpegFramePacket(1));
  ASSERT_TRUE(host.log.WaitFor("OnFrame", host.log.Count("OnFrame") + 1));
  EXPECT_TRUE(capture.StopCapture(0));
  const std::string log = camera.log.Text();
  EXPECT_TRUE(log.substr(log.find('\n') + 1)
                  .starts_with("DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n"
                               "DESCRIBE\nSETUP 3556-3557\nPLAY\n"))
      << log;
  EXPECT_EQ(camera.log.Count("GET"), 1U);
}

TEST(Channel, TellsTheHostThatNothingComesAtTheReceiveTimeoutsPace) {
  ScriptedCamera camera(2);
  Host host;
  host.params.port = 1;
  auto& capture = host.Open(camera, 2, sarnevo::CodecMJPEG);
  camera.onHttp = [](ScriptedCamera::Connection&, const std::string&) { return true; };  // no answer at all
  const auto begin = Clock::now();
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(host.log.WaitFor("OnNoData", 1));
  EXPECT_LT(Since(begin), milliseconds(2500));  // once behind the first pass
  ASSERT_TRUE(host.log.WaitFor("OnNoData", 4));
  EXPECT_GE(Since(begin), milliseconds(3 * 300));  // then at its pace
  EXPECT_EQ(camera.log.Count("DESCRIBE"), 0U);
  EXPECT_TRUE(capture.StopCapture(0));
}

TEST(Channel, TakesFramesThatDontCompleteForSilenceButDoesNotRestart) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMPEG4, SteadyTiming());
  camera.StartSending({1, 2, 3});  // never a key frame
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(host.log.WaitFor("OnNoData", 4));
  EXPECT_TRUE(capture.StopCapture(0));
  EXPECT_EQ(camera.log.Count("PLAY"), 1U);
  EXPECT_EQ(host.log.Count("AllocateFrame"), 0U);
}

TEST(Channel, ConfiguresUntilTheCameraTakesIt) {
  const struct {
    const char* name;
    int group;
    const char* reply;
    bool taken;
  } rows[] = {
      {"group 1, another status behind ret", 1, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nret=404", false},
      {"group 1, too short", 1, "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nret=20", false},
      {"group 1, cut", 1, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nret=2", false},
      {"group 1, empty", 1, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", false},
      {"group 1, longer", 1, "HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\nret=200 and more    ", true},
      {"group 1, HTTP status doesn't count", 1, "HTTP/1.1 500 No\r\nContent-Length: 7\r\n\r\nret=200", true},
      {"group 1, no HTTP", 1, "ret=200", false},
      {"group 1, closed", 1, "", false},
      {"group 2, error status", 2, "HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n", true},
      {"group 2, closed", 2, "", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedCamera camera(row.group);
    camera.onHttp = [&](ScriptedCamera::Connection& connection, const std::string&) {
      connection.Send(row.reply);
      return true;
    };
    Host host;
    auto& capture = host.Open(camera, row.group, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    if (row.taken) {
      EXPECT_TRUE(camera.log.WaitFor("DESCRIBE"));
    } else {
      EXPECT_TRUE(camera.log.WaitFor("GET", 3));
      EXPECT_EQ(camera.log.Count("DESCRIBE"), 0U);
    }
    EXPECT_TRUE(capture.StopCapture(0));
    EXPECT_EQ(camera.log.Count("GET") == 1, row.taken);
  }
}

TEST(Channel, WithoutMemoryForTheConfigurationTriesAgain) {
  struct Starved : sarnevo::CBaseCameraChannel {
    using CBaseCameraChannel::CBaseCameraChannel;
    std::uint32_t ConfigureCamera() override {
      configured_ = 1;
      throw std::bad_alloc();
    }
  };
  ScriptedCamera camera(1);
  Host host;
  host.Open(camera, 1, sarnevo::CodecMJPEG);
  Starved channel(0, host.driver.get(), &host.sink, true);
  ASSERT_TRUE(channel.Start(40, 352, 288, 60));
  EXPECT_TRUE(host.log.WaitFor("OnNoData", 3));
  channel.Stop();
  EXPECT_EQ(camera.log.Text(), "");
}

TEST(Channel, CleansUpBehindEachStepThatFailsAndTriesAgain) {
  constexpr const char* kRefusal = "RTSP/1.0 404 Not Found\r\nCSeq: 1\r\n\r\n";
  const struct {
    const char* refused;
    const char* reply;
    const char* dialogue;
  } rows[] = {
      // A DESCRIBE may fail; only what it leaves unread spoils the next reply.
      {"DESCRIBE", "RTSP/1.0 404 Not Found\r\n", "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n"},
      {"DESCRIBE", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPAUSE\nDESCRIBE\n"},
      {"SETUP", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPAUSE\nDESCRIBE\n"},
      {"PLAY", kRefusal, "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\nDESCRIBE\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.dialogue);
    ScriptedCamera camera(1);
    camera.onRtsp = [&](ScriptedCamera::Connection& connection, const std::string& request) {
      return IsMethod(request, row.refused) && connection.Send(row.reply);
    };
    Host host;
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(camera.log.WaitFor("DESCRIBE", 2));
    EXPECT_TRUE(capture.StopCapture(0));
    const std::string log = camera.log.Text();
    EXPECT_TRUE(log.substr(log.find('\n') + 1).starts_with(row.dialogue)) << log;
    EXPECT_EQ(camera.log.Count("GET"), 1U);
  }
}

TEST(Channel, TakesTheFirstFreePortPair) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  camera.StartSending(JpegFramePacket(1));
  const auto portsOf = [&](std::uint32_t channel, std::size_t setups) {
    EXPECT_TRUE(capture.StartCapture(channel, &host.sink, &host.wanted));
    EXPECT_TRUE(camera.log.WaitFor("SETUP", setups));
  };
  {
    const TakenPorts taken(3556);
    portsOf(0, 1);
    EXPECT_EQ(camera.log.Count("SETUP 3558-3559"), 1U) << camera.log.Text();
  }
  portsOf(1, 2);
  EXPECT_EQ(camera.log.Count("SETUP 3556-3557"), 1U);
  {
    const TakenPorts taken(3561);  // of the reports; that one doesn't show
    portsOf(2, 3);
    EXPECT_EQ(camera.log.Count("SETUP 3560-3561"), 1U);
  }
}

TEST(Channel, WaitsForAPortWhenAllAreTaken) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  auto taken = std::make_unique<TakenPorts>(3556, 4552, 2);
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(camera.log.WaitFor("SETUP 4554-4555"));  // the last pair
  ASSERT_TRUE(capture.StartCapture(1, &host.sink, &host.wanted));
  ASSERT_TRUE(camera.log.WaitFor("PAUSE", 2));  // tried, failed, cleaned up, again
  EXPECT_EQ(camera.log.Count("SETUP"), 1U);
  taken.reset();
  EXPECT_TRUE(camera.log.WaitFor("SETUP 3556-3557"));
}

TEST(Channel, ThrowsAFrameAwayAtAGapAndCountsAcrossTheTurn) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMPEG4, SteadyTiming());
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  camera.StartSending(Mpeg4KeyFramePacket());
  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  camera.StopSending();
  const struct {
    std::vector<std::uint16_t> interframes;  // between two key frames
    std::uint16_t firstKey;
    std::size_t delivered;
  } rows[] = {
      {{11, 12}, 10, 2},    {{12, 13}, 10, 0},  // one lost
      {{10, 11}, 10, 0},                        // doubled
      {{9}, 10, 0},                             // back
      {{0, 1}, 65535, 2},                       // the number turns
      {{0, 500}, 65535, 2},                     // behind a 0 any number passes
      {{1}, 65535, 0},
  };
  std::uint8_t tag = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.interframes.front());
    // A key frame comes through whatever its number, so the last one tells that all before it was seen.
    const auto sendKey = [&](std::uint16_t sequence) {
      Payload key = Mpeg4KeyFramePacket();
      key.push_back(++tag);
      camera.Send(sequence, true, key);
      const auto isThere = [&] {
        const auto frames = host.sink.Frames();
        return std::ranges::any_of(frames, [&](const auto& frame) { return frame == key; });
      };
      for (const auto begin = Clock::now(); !isThere() && Since(begin) < std::chrono::seconds(20);) {
        std::this_thread::sleep_for(milliseconds(1));
      }
      return isThere();
    };
    ASSERT_TRUE(sendKey(row.firstKey));
    const std::size_t before = host.log.Count("SetFourCC DIVI");
    for (const std::uint16_t sequence : row.interframes) {
      camera.Send(sequence, true, {0, 0, 1, 0xB6, 5});
    }
    ASSERT_TRUE(sendKey(static_cast<std::uint16_t>(row.interframes.back() + 1)));
    EXPECT_EQ(host.log.Count("SetFourCC DIVI") - before, row.delivered);
  }
  EXPECT_TRUE(capture.StopCapture(0));
}

}  // namespace
}  // namespace kolvex_test
