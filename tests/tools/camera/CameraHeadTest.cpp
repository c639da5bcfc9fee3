#include <gtest/gtest.h>

#include <cstdlib>

#include "CameraClient.h"
#include "PictureReader.h"
#include "simcam/CameraFarm.h"
#include "simcam/base/Text.h"
#include "simcam/head/PtzHead.h"

namespace {

using namespace simcam;
using namespace simcam_test;

constexpr Clock::time_point kStart{std::chrono::hours(1)};

Clock::time_point After(int milliseconds) { return kStart + Milliseconds(milliseconds); }

std::string Describe(const Decoded& decoded) {
  if (const auto* error = std::get_if<std::string>(&decoded)) {
    return "error: " + *error;
  }
  const HeadCommand& c = std::get<HeadCommand>(decoded);
  static constexpr const char* kNames[] = {"drive",  "focus stop", "auto focus",    "auto iris", "store",
                                           "recall", "clear",      "store at last", "clear all"};
  std::string text = kNames[static_cast<unsigned>(c.kind)];
  if (c.pan != 0) text += Format(" pan %g", c.pan);
  if (c.tilt != 0) text += Format(" tilt %g", c.tilt);
  if (c.zoom != 0) text += Format(" zoom %d", c.zoom);
  if (c.focus != 0) text += Format(" focus %d", c.focus);
  if (c.iris != 0) text += Format(" iris %d", c.iris);
  if (c.number != 0) text += Format(" %u", c.number);
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
      {kThree, "010183", "drive pan 0.5"},
      {kThree, "0104b8", "drive tilt 1"},
      {kThree, "0108B8", "drive tilt -1"},
      {kThree, "0106bf", "drive pan -1 tilt 1"},
      {kThree, "010Abf", "drive pan -1 tilt -1"},
      {kThree, "0110FF", "drive zoom 1"},
      {kThree, "0120FF", "drive zoom -1"},
      {kThree, "0140FF", "drive focus 1"},
      {kThree, "0180FF", "drive focus -1"},
      {kThree, "010001", "drive iris -1"},
      {kThree, "010000", "drive iris 1"},
      {kThree, "0100FF", "drive"},
      {kThree, "0100D5", "auto focus"},
      {kThree, "0100D4", "auto iris"},
      {kThree, "01FFF5", "clear all"},
      {kThree, "410a00", "recall 10"},
      {kThree, "810570", "store at last"},
      {kThree, "01", "error: a message has 3 bytes, not 1"},
      {kThree, "010103", "error: speed 03 doesn't belong to movement 01"},
      {kThree, "0101b8", "error: speed B8 doesn't belong to movement 01"},
      {kThree, "414000", "error: unknown message 41 40 00"},
      {kThree, "0103FF", "error: unknown message 01 03 FF"},
      {kPelco, "FF010000000001", "drive"},
      {kPelco, "FF010002200023", "drive pan 0.5"},
      {kPelco, "FF01000C20204D", "drive pan -0.5 tilt 0.5"},
      {kPelco, "FF010002400043", "drive pan 1"},
      {kPelco, "FF010020000021", "drive zoom 1"},
      {kPelco, "FF010100000002", "drive focus -1"},
      {kPelco, "FF010080000081", "drive focus 1"},
      {kPelco, "FF010400000005", "drive iris -1"},
      {kPelco, "FF010200000003", "drive iris 1"},
      {kPelco, "FF010027000028", "focus stop"},
      {kPelco, "FF01002B00002C", "auto focus"},
      {kPelco, "FF01002D00002E", "auto iris"},
      {kPelco, "FF010003000105", "store 1"},
      {kPelco, "FF01000700141C", "recall 20"},
      {kPelco, "FF010005002026", "clear 32"},
      {kPelco, "FF010002200024", "error: checksum 24, not 23"},
      {kPelco, "FF020002200024", "error: address 2, this head is 1"},
      {kPelco, "FE010002200023", "error: the frame begins with FE, not FF"},
      {kPelco, "FF0100022000", "error: a frame has 7 bytes, not 6"},
      {kPelco, "FF010002410044", "error: speeds 65 and 0 don't belong to command 00 02"},
      {kPelco, "FF010006200027", "error: command 00 06 asks for both ways at once"},
      {kPelco, "FF010007002129", "error: unknown extended command 07 00 21"},
      {kPelco, "FF018000000081", "error: unknown command 80 00"},
      {HeadProtocol::None, "FF010000000001", "error: no head at the serial port"},
  };
  for (const Row& row : rows) {
    const auto bytes = DecodeHex(row.hex);
    ASSERT_TRUE(bytes) << row.hex;
    EXPECT_EQ(Describe(DecodeFrame(row.protocol, *bytes)), row.meaning) << row.hex;
  }
}

void Write(PtzHead& head, const char* hex, Clock::time_point when) { head.Write(*DecodeHex(hex), when); }

TEST(CameraHead, TakesTimeToMoveAndToStop) {
  PtzHead head(HeadProtocol::PelcoD, 0, 0, 1);
  Write(head, "FF010002400043", kStart);
  const double early = head.Look(After(50)).pan;
  const double later = head.Look(After(500)).pan;
  EXPECT_GT(early, 0);
  EXPECT_LT(early, 0.05 * 30) << "it gets going slowly";
  EXPECT_NEAR(later, 30 * 0.5 - 30.0 * 30 / 120 / 2, 1);
  Write(head, "FF010000000001", After(500));
  const double rest = head.Look(After(2000)).pan;
  EXPECT_GT(rest, later) << "it runs on for a moment";
  EXPECT_EQ(head.Look(After(5000)).pan, rest);
  EXPECT_FALSE(head.Status(After(5000)).moving);
  Write(head, "FF010020000021", After(5000));
  EXPECT_NEAR(head.Look(After(20'000)).zoom, 5, 0.1) << "as far as it goes";
}

TEST(CameraHead, KeepsPositionsAsEachProtocolDoes) {
  PtzHead pelco(HeadProtocol::PelcoD, 10, 5, 2);
  Write(pelco, "FF010003000307", kStart);       // store 3
  Write(pelco, "FF010004400045", kStart);       // pan left
  Write(pelco, "FF010000000001", After(1000));  // stop
  EXPECT_LT(pelco.Look(After(2000)).pan, 0);
  Write(pelco, "FF01000700030B", After(2000));  // go to 3
  EXPECT_NEAR(pelco.Look(After(6000)).pan, 10, 0.05);
  Write(pelco, "FF010005000309", After(6000));  // clear 3
  EXPECT_TRUE(pelco.Status(After(6000)).presets.empty());

  PtzHead three(HeadProtocol::ThreeByte, 10, 5, 2);
  Write(three, "410700", kStart);  // an empty slot: nothing moves, but it is chosen
  EXPECT_EQ(three.Look(After(1000)).pan, 10);
  Write(three, "810570", After(1000));  // store there
  EXPECT_EQ(three.Status(After(1000)).presets, std::vector<std::string>{"7: pan +10.0 tilt +5.0 zoom 2.0"});
  Write(three, "010287", After(1000));
  Write(three, "0100FF", After(2000));
  Write(three, "410700", After(2000));
  EXPECT_NEAR(three.Look(After(6000)).pan, 10, 0.05);
  Write(three, "01FFF5", After(6000));
  EXPECT_TRUE(three.Status(After(6000)).presets.empty());
}

TEST(CameraHead, ListensBehindTheSerialProgramAndMovesThePicture) {
  CameraFarm farm;
  SimulatedCamera& camera = farm.Add({.group = Group::One, .model = "P-426", .address = "127.0.1.1"});
  const std::string write = "/serial.cgi?action=apply&port=2&write=";
  Stream stream("127.0.1.1", 1);
  const Luma before = DecodeJpeg(JpegOf(stream.NextFrame(), 1));
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF010002400043")), "ret=200&method=apply\r\n");
  EXPECT_TRUE(camera.WaitUntil([](const CameraStatus& s) { return s.head.pan > 2; }, std::chrono::seconds(5)));
  Get("127.0.1.1", write + "FF010000000001");
  // A row through the houses, where nothing moves by itself. Frames from before the move may still wait.
  long difference = 0;
  for (int frame = 0; frame < 100 && difference < 10L * before.width; ++frame) {
    const Luma now = DecodeJpeg(JpegOf(stream.NextFrame(), 1));
    difference = 0;
    for (unsigned x = 0; x < before.width; ++x) {
      const std::size_t at = std::size_t{before.height} / 2 * before.width + x;
      difference += std::abs(before.pixels.at(at) - now.pixels.at(at));
    }
  }
  EXPECT_GE(difference, 10L * before.width);
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF010000000002")), "ret=200&method=apply\r\n")
      << "the camera doesn't read what it writes to the port";
  EXPECT_EQ(BodyOf(Get("127.0.1.1", write + "FF01000")), "ret=400&method=apply\r\n");
  const HeadStatus head = camera.Status().head;
  EXPECT_EQ(head.frames, 2U);
  EXPECT_EQ(head.errors, 1U);
  EXPECT_EQ(head.lastError, "checksum 02, not 01");
}

}  // namespace
