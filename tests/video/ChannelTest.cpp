#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Socket.h"
#include "video/ChannelFixture.h"
#include "video/InterruptGate.h"

namespace kolvex_test {
namespace {

// What the camera was asked for behind its configuration.
std::string DialogueOf(const ScriptedCamera& camera) {
  const std::string log = camera.log.Text();
  return log.substr(log.find('\n') + 1);
}

TEST(Channel, GivesFramesFromBothGroupsInBothCodecsAndTakesItsLeave) {
  const struct {
    int group;
    std::uint32_t codec;
    const char* configuration;
    const char* fourCC;
  } rows[] = {
      {1, sarnevo::CodecMJPEG, "GET /multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&const_qu=9",
       "JPEG"},
      {1, sarnevo::CodecMPEG4,
       "GET /multimedia.cgi?action=apply&tv_standard=PAL&resolution=cif&targetrate=3000", "DIVX"},
      {2, sarnevo::CodecMJPEG, "GET /SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mjpeg",
       "JPEG"},
      {2, sarnevo::CodecMPEG4, "GET /SetMultimedia.cgi?CH=0&Resolution=cif&Fps=25&Format=PAL&Mode=mpeg4",
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
    EXPECT_EQ(camera.log.Count(row.configuration), 1U) << camera.log.Text();
    EXPECT_EQ(DialogueOf(camera), "DESCRIBE\nSETUP 3556-3557\nPLAY\nPAUSE\nTEARDOWN\n");
    EXPECT_EQ(host.log.Count("AllocateFrame " + std::string(row.fourCC)), host.log.Count("ReleaseFrame"));
    EXPECT_EQ(host.allocator.Outstanding(), 0U);
    const std::size_t frames = host.log.Count("OnFrame");
    EXPECT_FALSE(host.log.WaitFor("OnFrame", frames + 1, milliseconds(20)));  // nothing runs any more
  }
}

TEST(Channel, TellsTheHostThatNothingComesAtTheReceiveTimeoutsPace) {
  ScriptedCamera camera(2);
  Host host;
  host.params.port = 1;
  auto& capture = host.Open(camera, 2, sarnevo::CodecMJPEG);
  camera.onHttp = [](ScriptedCamera::Connection&, const std::string&) { return true; };  // no answer at all
  const auto begin = Clock::now();
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  ASSERT_TRUE(host.log.WaitFor("OnNoData", 4));    // once behind the first pass,
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
    const char* body;
    bool taken;
  } rows[] = {{"ret=404", false}, {"ret=20", false}, {"ret=200 more", true}};
  for (const auto& [body, taken] : rows) {
    SCOPED_TRACE(body);
    ScriptedCamera camera(1);
    camera.onHttp = [body = body](ScriptedCamera::Connection& connection, const std::string&) {
      return connection.Send(std::string("HTTP/1.1 200 OK\r\n\r\n") + body);
    };
    Host host;
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(taken ? camera.log.WaitFor("DESCRIBE") : camera.log.WaitFor("GET", 3));
    EXPECT_EQ(camera.log.Count("DESCRIBE") != 0, taken);
    EXPECT_TRUE(capture.StopCapture(0));
    EXPECT_EQ(camera.log.Count("GET") == 1, taken);
  }
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
      return request.starts_with(row.refused) && connection.Send(row.reply);
    };
    Host host;
    auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(camera.log.WaitFor("DESCRIBE", 2));
    EXPECT_TRUE(capture.StopCapture(0));
    EXPECT_TRUE(DialogueOf(camera).starts_with(row.dialogue)) << camera.log.Text();
    EXPECT_EQ(camera.log.Count("GET"), 1U);
  }
}

TEST(Channel, WaitsForAPortPairWhenThereIsNone) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMJPEG);
  {
    std::vector<sarnevo::platform::Socket> taken;
    for (std::uint16_t port = 3556; port < 4556; port = static_cast<std::uint16_t>(port + 2)) {
      taken.push_back(sarnevo::platform::Socket::CreateUdp());
      taken.back().Bind(sarnevo::platform::SocketAddress::Any(port));
    }
    ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
    EXPECT_TRUE(camera.log.WaitFor("PAUSE", 2));  // tried, failed, cleaned up, again
    EXPECT_EQ(camera.log.Count("SETUP"), 0U);
  }
  EXPECT_TRUE(camera.log.WaitFor("SETUP 3556-3557")) << camera.log.Text();
}

// A stop may come between two things that a worker waits for; the next one must not wait at all.
TEST(InterruptGate, ReachesWhatIsWatchedNowAndWhatComesBehindIt) {
  struct Object {
    void End() noexcept { ++ends; }
    int ends = 0;
  } first, second;
  sarnevo::InterruptGate gate;
  gate.Watch<&Object::End>(first);
  gate.Interrupt();
  gate.Unwatch();
  gate.Watch<&Object::End>(second);
  gate.Pause(std::chrono::hours(1));
  gate.Interrupt();
  gate.Unwatch();
  gate.Reset();
  gate.Watch<&Object::End>(first);
  EXPECT_EQ(first.ends, 1);
  EXPECT_EQ(second.ends, 2);
}

TEST(Channel, ThrowsAFrameAwayAtAGapAndCountsAcrossTheTurn) {
  ScriptedCamera camera(1);
  Host host;
  auto& capture = host.Open(camera, 1, sarnevo::CodecMPEG4, SteadyTiming());
  ASSERT_TRUE(capture.StartCapture(0, &host.sink, &host.wanted));
  camera.StartSending(Mpeg4KeyFramePacket());
  ASSERT_TRUE(host.log.WaitFor("OnFrame"));
  camera.StopSending();
  // A key frame comes through whatever its number, and tells that all before it was seen. Its size is its own.
  std::size_t keys = 0;
  const auto sendKey = [&](std::uint16_t sequence) {
    Payload key = Mpeg4KeyFramePacket();
    key.resize(100);
    camera.Send(sequence, true, key);
    return host.log.WaitFor("SetDataSize 100", ++keys);
  };
  const struct {
    std::uint16_t firstKey;
    std::vector<std::uint16_t> interframes;  // between two key frames
    std::size_t delivered;
  } rows[] = {
      {10, {11, 12}, 2},    {10, {12, 13}, 0},  // one lost
      {10, {10, 11}, 0},    {10, {9}, 0},       // doubled, back
      {65535, {0, 500}, 2}, {65535, {1}, 0},    // the number turns; behind a 0 any number passes
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.interframes.front());
    ASSERT_TRUE(sendKey(row.firstKey));
    const std::size_t before = host.log.Count("SetFourCC DIVI");
    for (const std::uint16_t sequence : row.interframes) {
      camera.Send(sequence, true, {0, 0, 1, 0xB6, 5});
    }
    ASSERT_TRUE(sendKey(static_cast<std::uint16_t>(row.interframes.back() + 1)));
    EXPECT_EQ(host.log.Count("SetFourCC DIVI") - before, row.delivered);
  }
}

}  // namespace
}  // namespace kolvex_test
