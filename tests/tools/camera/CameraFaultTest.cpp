#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/device/Control.h"
#include "simcam/stream/PacketMangler.h"

namespace {

using namespace simcam;
using namespace simcam_test;

/// What comes out for packets 1 to 10, of which every third has the marker: "n" is packet n as it was, "n#m"
/// packet n numbered m, "n*" without its marker, "?" anything else.
std::string Mangled(FaultRate PacketFaults::*which, const char* rate, std::uint64_t seed = 1) {
  PacketFaults faults;
  faults.*which = *FaultRate::Parse(rate);
  PacketMangler mangler(seed);
  FaultCounts counts;
  std::string text;
  for (std::uint8_t number = 1; number <= 10; ++number) {
    Bytes packet(20, number);
    packet[0] = 0x80;
    packet[1] = number % 3 == 0 ? 0x9A : 0x1A;
    packet[2] = 0;
    mangler.Process(faults, counts, packet, [&text](std::span<const std::uint8_t> bytes, PacketMangler::From) {
      if (bytes.size() != 20 ||
          std::any_of(bytes.begin() + 4, bytes.end(), [&](auto b) { return b != bytes[12]; })) {
        text += "? ";
        return;
      }
      text += std::to_string(bytes[12]) + (bytes[3] != bytes[12] ? "#" + std::to_string(bytes[3]) : "") +
              (bytes[12] % 3 == 0 && bytes[1] == 0x1A ? "* " : " ");
    });
  }
  return text;
}

TEST(CameraFaults, StrikeThePacketsThatTheyName) {
  struct Row {
    FaultRate PacketFaults::*which;
    const char* rate;
    const char* result;
  };
  const Row rows[] = {
      {&PacketFaults::lose, "0", "1 2 3 4 5 6 7 8 9 10 "},
      {&PacketFaults::lose, "every:4", "1 2 3 5 6 7 9 10 "},
      {&PacketFaults::lose, "next:3", "4 5 6 7 8 9 10 "},
      {&PacketFaults::duplicate, "every:5", "1 2 3 4 5 5 6 7 8 9 10 10 "},
      {&PacketFaults::reorder, "every:4", "1 2 3 5 4 6 7 9 8 10 "},
      {&PacketFaults::swap, "every:4", "1 2 3 4#5 5#4 6 7 8#9 9#8 10 "},
      {&PacketFaults::unmark, "every:2", "1 2 3 4 5 6* 7 8 9 10 "},
      {&PacketFaults::corrupt, "next:1", "? 2 3 4 5 6 7 8 9 10 "},
      {&PacketFaults::truncate, "next:1", "? 2 3 4 5 6 7 8 9 10 "},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Mangled(row.which, row.rate), row.result) << row.rate;
  }
  EXPECT_THAT(Mangled(&PacketFaults::garbage, "next:1"), testing::HasSubstr("?"));
  EXPECT_EQ(Mangled(&PacketFaults::lose, "0.5", 7), Mangled(&PacketFaults::lose, "0.5", 7)) << "same seed";
  EXPECT_NE(Mangled(&PacketFaults::lose, "0.5", 7), Mangled(&PacketFaults::lose, "0.5", 8));
}

TEST(CameraFaults, ThatMakeNoSenseAreRefused) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .model = "P-423", .address = "127.0.1.1"});
  for (const char* nonsense : {"lose=2", "lose=every:0", "lose=next:", "lose=nan", "http=cut", "http=stall:1",
                               "http=ok*0", "rtsp=explode", "reboot=-1", "answer-as=3", "nothing=1", "input3=1",
                               "input-script=5/3=1", "pins=odd"}) {
    EXPECT_NE(camera.Control(nonsense), "") << nonsense;
  }
}

TEST(CameraFaults, SpoilRepliesAsTheySay) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  const std::string target = "/time.cgi?action=retrieve";
  const std::string request = "GET " + target +
                              " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                              "Authorization: Basic YWRtaW46a29sdmV4\r\n\r\n";
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::size_t whole = Get("127.0.1.1", target).size();
  struct Row {
    const char* fault;
    std::string start;  // of what comes
    std::size_t size;   // of what comes
  };
  const Row rows[] = {
      {"http=cut:9*1", "HTTP/1.1 ", 9},
      {"http=cut:0*1", "", 0},
      {"http=reset*1", "", 0},
      {"http=status:503*1", "HTTP/1.1 503 Service Unavailable\r\n", 0},
      {"http=garbage:64*1", "", 64},
      {"http=drip:1*1", ok, whole},
      {"http=pieces:20*1", ok, whole},
      {"http=delay:50*1", ok, whole},
      {"http=stall@/multimedia.cgi", ok, whole},
      {"http=endless", ok, 200'000},
      {"http=cut/status*1", "HTTP/1.", 7},
      {"http=cut/header1*1", ok + "Server:", 24},
      {"http=garbage:64/header2*1", ok + "Server: Kolvex\r\nContent-Type", 109},
      {"http=oversize:900/header1*1", ok + "Server:xxxx", whole + 900},
      {"http=oversize:900/body*1", ok, whole + 901},
      {"http=ok", ok, whole},
  };
  for (const Row& row : rows) {
    ASSERT_EQ(camera.Control(row.fault), "");
    Wire wire("127.0.1.1", 80, request);
    const std::string reply = wire.Read(200'000);
    EXPECT_THAT(reply, testing::StartsWith(row.start)) << row.fault;
    EXPECT_EQ(reply.size(), row.start.find("503") == std::string::npos ? row.size : reply.size()) << row.fault;
    EXPECT_EQ(wire.reset(), row.fault == std::string("http=reset*1")) << row.fault;
  }
  for (const bool refuse : {true, false}) {
    camera.Control(refuse ? "http=refuse&rtsp=refuse" : "heal=1");
    EXPECT_EQ(Wire("127.0.1.1", 80).connected(), !refuse);
    EXPECT_EQ(Wire("127.0.1.1", 554).connected(), !refuse);
  }
  camera.Control("rtsp=cut:20@DESCRIBE");
  Wire rtsp("127.0.1.1", 554, "DESCRIBE rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 1\r\n\r\n");
  EXPECT_EQ(rtsp.Read(), "RTSP/1.0 200 OK\r\nCSe");
}

TEST(CameraFaults, ReachTheControlPageOverHttpEvenWhileRepliesAreSpoiled) {
  CameraFarm farm;
  farm.Add({.group = Group::One, .address = "127.0.1.1"});
  farm.Add({.group = Group::Two, .address = "127.0.2.1"});
  std::string error;
  ASSERT_TRUE(farm.ServeControl("127.0.0.1", 80, error)) << error;
  EXPECT_EQ(BodyOf(Get("127.0.1.1", "/sim.cgi?http=stall&lose=every:9", "")), "ok\n");
  const std::string status = BodyOf(Get("127.0.1.1", "/sim.cgi", ""));
  EXPECT_THAT(status, testing::HasSubstr("\"http\": \"stall\""));
  EXPECT_THAT(status, testing::HasSubstr("\"lose\": \"every:9\""));
  EXPECT_EQ(BodyOf(Get("127.0.0.1", "/?camera=127.0.2.1&silent=1", "")), "ok\n");
  EXPECT_EQ(BodyOf(Get("127.0.0.1", "/?camera=127.0.9.9&silent=1", "")), "no camera at 127.0.9.9\n");
  EXPECT_TRUE(farm.cameras()[1]->Status().faults.silent);
  EXPECT_FALSE(farm.cameras()[0]->Status().faults.silent);
}

TEST(CameraFaults, ARebootForgetsSessionsAndOutputsAndDrawsANewSource) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  Get("127.0.1.1", "/gpio.cgi?action=apply&relayid=1&value=1");
  Stream before("127.0.1.1", 1);
  const std::uint32_t source = Word(before.NextFrame().at(0), 8);
  ASSERT_EQ(camera.Control("reboot=1&answer-as=2"), "");
  EXPECT_FALSE(Wire("127.0.1.1", 554).connected());
  EXPECT_EQ(before.Request("PLAY"), "") << "the connection is gone";
  ASSERT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.up; }, std::chrono::seconds(5)));
  EXPECT_EQ(camera.Status().sessions, 0U);
  EXPECT_FALSE(camera.Status().outputs[0]);
  Stream after("127.0.1.1", 2);
  EXPECT_NE(Word(after.NextFrame().at(0), 8), source);
  EXPECT_NE(after.session, before.session);
  EXPECT_THAT(Get("127.0.1.1", "/GetTime.cgi"), testing::HasSubstr(" 200 ")) << "back as the other group";
}

}  // namespace
