#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/base/Text.h"
#include "simcam/head/PtzHead.h"

namespace {

using namespace simcam;
using namespace simcam_test;

TEST(CameraHead, RefusesFramesThatNoHeadUnderstands) {
  struct Row {
    HeadProtocol protocol;
    const char* hex;
    const char* error;
  };
  constexpr HeadProtocol kThree = HeadProtocol::ThreeByte;
  constexpr HeadProtocol kPelco = HeadProtocol::PelcoD;
  const Row rows[] = {
      {kThree, "810570", ""},
      {kThree, "01", "a message has 3 bytes, not 1"},
      {kThree, "0101b8", "speed B8 doesn't belong to movement 01"},
      {kThree, "414000", "unknown message 41 40 00"},
      {kPelco, "FF010002200024", "checksum 24, not 23"},
      {kPelco, "FF020002200024", "address 2, this head is 1"},
      {kPelco, "FF0100022000", "a frame has 7 bytes, not 6"},
      {kPelco, "FF010002410044", "speeds 65 and 0 don't belong to command 00 02"},
      {kPelco, "FF010007002129", "unknown extended command 07 00 21"},
      {HeadProtocol::None, "FF010000000001", "no head at the serial port"},
  };
  for (const Row& row : rows) {
    const Decoded decoded = DecodeFrame(row.protocol, *DecodeHex(row.hex));
    const auto* const error = std::get_if<std::string>(&decoded);
    EXPECT_EQ(error != nullptr ? *error : "", row.error) << row.hex;
  }
}

TEST(CameraHead, ListensBehindTheSerialProgram) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .model = "P-426", .address = "127.0.1.1"});
  const std::string write = "/serial.cgi?action=apply&port=2&write=";
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF010002400043")), "ret=200&method=apply\r\n");
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF010000000002")), "ret=200&method=apply\r\n")
      << "the camera doesn't read what it writes to the port";
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF01000")), "ret=400&method=apply\r\n");
  const HeadStatus head = camera.Status().head;
  EXPECT_TRUE(head.moving);
  EXPECT_EQ(head.frames, 1U);
  EXPECT_EQ(head.errors, 1U);
  EXPECT_EQ(head.lastError, "checksum 02, not 01");
}

}  // namespace
