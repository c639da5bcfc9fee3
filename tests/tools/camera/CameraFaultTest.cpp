#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/stream/PacketMangler.h"

namespace {

using namespace simcam;
using namespace simcam_test;
using Bytes = std::vector<std::uint8_t>;

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

}  // namespace
