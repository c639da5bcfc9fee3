#include <gtest/gtest.h>

#include "CameraClient.h"
#include "simcam/CameraFarm.h"
#include "simcam/base/Text.h"
#include "simcam/head/PtzHead.h"

namespace {

using namespace simcam;
using namespace simcam_test;

std::string Describe(const Decoded& decoded) {
  if (const auto* error = std::get_if<std::string>(&decoded)) {
    return "error: " + *error;
  }
  const HeadCommand& c = std::get<HeadCommand>(decoded);
  static constexpr const char* kNames[] = {"drive",  "focus stop", "auto focus",    "auto iris", "store",
                                           "recall", "clear",      "store at last", "clear all"};
  const std::pair<const char*, double> values[] = {{"pan", c.pan},     {"tilt", c.tilt}, {"zoom", c.zoom},
                                                   {"focus", c.focus}, {"iris", c.iris}, {"no.", c.number}};
  std::string text = kNames[static_cast<unsigned>(c.kind)];
  for (const auto& [name, value] : values) {
    text += value != 0 ? Format(" %s %g", name, value) : "";
  }
  return text;
}

TEST(CameraHead, DecodesEachFrameStrictly) {
  struct Row {
    HeadProtocol protocol;
    const char* hex;
    const char* meaning;
  };
  constexpr HeadProtocol kThree = HeadProtocol::ThreeByte;
  constexpr HeadProtocol kPelco = HeadProtocol::PelcoD;
  const Row rows[] = {
      {kThree, "010280", "drive pan -0.125"},
      {kThree, "0100D5", "auto focus"},
      {kThree, "810570", "store at last"},
      {kThree, "01", "error: a message has 3 bytes, not 1"},
      {kThree, "0101b8", "error: speed B8 doesn't belong to movement 01"},
      {kThree, "414000", "error: unknown message 41 40 00"},
      {kPelco, "FF01000C20204D", "drive pan -0.5 tilt 0.5"},
      {kPelco, "FF01000700141C", "recall no. 20"},
      {kPelco, "FF010002200024", "error: checksum 24, not 23"},
      {kPelco, "FF020002200024", "error: address 2, this head is 1"},
      {kPelco, "FF0100022000", "error: a frame has 7 bytes, not 6"},
      {kPelco, "FF010002410044", "error: speeds 65 and 0 don't belong to command 00 02"},
      {kPelco, "FF010007002129", "error: unknown extended command 07 00 21"},
      {HeadProtocol::None, "FF010000000001", "error: no head at the serial port"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Describe(DecodeFrame(row.protocol, *DecodeHex(row.hex))), row.meaning) << row.hex;
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
