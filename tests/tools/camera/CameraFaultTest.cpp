#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/device/Control.h"
#include "simcam/stream/PacketMangler.h"

namespace {

using namespace simcam;
using namespace simcam_test;

std::vector<std::uint8_t> Packet(unsigned number) {
  std::vector<std::uint8_t> bytes(20, 0x55);
  bytes[0] = 0x80;
  bytes[1] = number % 3 == 0 ? 0x9A : 0x1A;
  bytes[2] = static_cast<std::uint8_t>(number >> 8);
  bytes[3] = static_cast<std::uint8_t>(number);
  bytes[12] = static_cast<std::uint8_t>(number);
  return bytes;
}

/// What comes out for packets 1 to 10: "n" is packet n as it was, "n#m" packet n numbered m, "n*" without
/// its marker, "n<" shortened, "n!" changed, "?" a foreign datagram.
std::string Mangled(PacketFaults faults, std::uint64_t seed = 1) {
  PacketMangler mangler(seed);
  FaultCounts counts;
  std::string text;
  for (unsigned number = 1; number <= 10; ++number) {
    mangler.Process(faults, counts, Packet(number), [&text](std::span<const std::uint8_t> bytes) {
      if (bytes.size() < 13 || bytes[0] != 0x80 || bytes[12] > 10) {
        text += bytes.size() < 20 && (bytes.empty() || bytes[0] == 0x80) ? "< " : "? ";
        return;
      }
      const std::vector<std::uint8_t> original = Packet(bytes[12]);
      text += std::to_string(bytes[12]);
      if (bytes[3] != bytes[12]) text += "#" + std::to_string(bytes[3]);
      if (bytes[1] != original[1]) text += "*";
      if (bytes.size() < original.size()) text += "<";
      if (bytes.size() == original.size() &&
          !std::equal(bytes.begin() + 13, bytes.end(), original.begin() + 13)) {
        text += "!";
      }
      text += " ";
    });
  }
  return text;
}

PacketFaults With(FaultRate PacketFaults::*which, const char* rate) {
  PacketFaults faults;
  faults.*which = *FaultRate::Parse(rate);
  return faults;
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
      {&PacketFaults::lose, "1", ""},
      {&PacketFaults::duplicate, "every:5", "1 2 3 4 5 5 6 7 8 9 10 10 "},
      {&PacketFaults::reorder, "every:4", "1 2 3 5 4 6 7 9 8 10 "},
      {&PacketFaults::reorder, "next:2", "1 3 2 4 5 6 7 8 9 10 "},
      {&PacketFaults::swap, "every:4", "1 2 3 4#5 5#4 6 7 8#9 9#8 10 "},
      {&PacketFaults::unmark, "every:2", "1 2 3 4 5 6* 7 8 9 10 "},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Mangled(With(row.which, row.rate)), row.result) << row.rate;
  }
  EXPECT_NE(Mangled(With(&PacketFaults::corrupt, "1")).find('!'), std::string::npos);
  EXPECT_NE(Mangled(With(&PacketFaults::truncate, "1")).find('<'), std::string::npos);
  EXPECT_NE(Mangled(With(&PacketFaults::garbage, "1")).find('?'), std::string::npos);
}

TEST(CameraFaults, AreTheSameForTheSameSeed) {
  PacketFaults faults;
  faults.lose = faults.reorder = faults.truncate = faults.corrupt = *FaultRate::Parse("0.3");
  EXPECT_EQ(Mangled(faults, 7), Mangled(faults, 7));
  EXPECT_NE(Mangled(faults, 7), Mangled(faults, 8));
}

TEST(CameraFaults, ThatMakeNoSenseAreRefused) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  for (const char* nonsense : {"lose=2", "lose=-1", "lose=every:0", "lose=next:", "lose=nan", "http=cut",
                               "http=stall:1", "http=pieces:0", "http=ok*0", "rtsp=explode", "reboot=-1",
                               "silent=2", "answer-as=3", "seed=0", "nothing=1"}) {
    EXPECT_EQ(camera.Control(nonsense), std::string("the camera can't do \"") + nonsense + "\"");
  }
}

TEST(CameraFaults, SpoilRepliesAsTheySay) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  const std::string request =
      "GET /time.cgi?action=retrieve HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
      "Authorization: Basic YWRtaW46a29sdmV4\r\n\r\n";
  struct Row {
    const char* fault;
    const char* start;  // of what comes
    std::size_t size;   // of what comes; 0: whole
    bool closed, reset;
  };
  const Row rows[] = {
      {"http=cut:9*1", "HTTP/1.1 ", 9, true, false},
      {"http=cut:0*1", "", 0, true, false},
      {"http=reset*1", "", 0, true, true},
      {"http=status:503*1", "HTTP/1.1 503 Service Unavailable\r\n", 0, true, false},
      {"http=garbage:64*1", "", 64, true, false},
      {"http=drip:1*1", "HTTP/1.1 200 OK\r\n", 0, true, false},
      {"http=pieces:20*1", "HTTP/1.1 200 OK\r\n", 0, true, false},
      {"http=delay:50*1", "HTTP/1.1 200 OK\r\n", 0, true, false},
      {"http=stall@/multimedia.cgi", "HTTP/1.1 200 OK\r\n", 0, true, false},
      {"http=ok", "HTTP/1.1 200 OK\r\n", 0, true, false},
  };
  const std::size_t whole = Get("127.0.1.1", "/time.cgi?action=retrieve").size();
  for (const Row& row : rows) {
    ASSERT_EQ(camera.Control(row.fault), "");
    Wire wire("127.0.1.1", 80);
    wire.Send(request);
    const std::string reply = wire.Read();
    EXPECT_TRUE(reply.starts_with(row.start)) << row.fault << "\n" << reply;
    if (row.size != 0) {
      EXPECT_EQ(reply.size(), row.size) << row.fault;
    }
    if (std::string(row.start) == "HTTP/1.1 200 OK\r\n") {
      EXPECT_EQ(reply.size(), whole) << row.fault;
    }
    EXPECT_EQ(wire.closed(), row.closed) << row.fault;
    EXPECT_EQ(wire.reset(), row.reset) << row.fault;
  }

  camera.Control("http=endless");
  Wire endless("127.0.1.1", 80);
  endless.Send(request);
  EXPECT_EQ(endless.Read(200'000).size(), 200'000U);

  camera.Control("http=refuse&rtsp=refuse");
  EXPECT_FALSE(Wire("127.0.1.1", 80).connected());
  EXPECT_FALSE(Wire("127.0.1.1", 554).connected());
  camera.Control("heal=1");
  EXPECT_TRUE(Wire("127.0.1.1", 80).connected());
  EXPECT_TRUE(Wire("127.0.1.1", 554).connected());
  camera.Control("rtsp=cut:20@DESCRIBE");
  Wire rtsp("127.0.1.1", 554);
  rtsp.Send("DESCRIBE rtsp://127.0.1.1:554/object.sdp RTSP/1.0\r\nCSeq: 1\r\n\r\n");
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
  EXPECT_NE(status.find("\"http\": \"stall\""), std::string::npos) << status;
  EXPECT_NE(status.find("\"lose\": \"every:9\""), std::string::npos) << status;
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
  const std::vector<Datagram> frame = before.NextFrame();
  ASSERT_FALSE(frame.empty());
  ASSERT_EQ(camera.Control("reboot=1"), "");
  EXPECT_FALSE(Wire("127.0.1.1", 554).connected());
  EXPECT_EQ(before.Request("PLAY"), "") << "the connection is gone";
  ASSERT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.up; }, std::chrono::seconds(5)));
  EXPECT_EQ(camera.Status().sessions, 0U);
  EXPECT_FALSE(camera.Status().outputs[0]);
  Stream after("127.0.1.1", 1);
  const std::vector<Datagram> again = after.NextFrame();
  ASSERT_FALSE(again.empty());
  EXPECT_NE(again[0].word(8), frame[0].word(8));
  EXPECT_NE(after.session, before.session);
}

TEST(CameraFaults, ACameraCanComeBackAsTheOtherGroup) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .address = "127.0.1.1"});
  ASSERT_EQ(camera.Control("answer-as=2"), "");
  EXPECT_TRUE(Get("127.0.1.1", "/GetTime.cgi").starts_with("HTTP/1.1 200"));
  Stream stream("127.0.1.1", 2);
  EXPECT_NE(stream.describe.find("\r\nDate: "), std::string::npos);
  EXPECT_FALSE(stream.NextFrame().empty());
}

}  // namespace
