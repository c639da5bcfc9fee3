#include "ptz/CPTZControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using namespace kolvex_test;
using Control = IIPPTZApiEx;

// In order: in front of a movement the lens goes back to automatic, focus first.
TEST(CPTZControl, SendsTheseFramesAndForgetsWhereTheCameraWas) {
  struct Row {
    const char* name;
    i32 (*call)(Control&);
    std::string threeByte;
    std::string pelcoD;
    std::string current;  // after it; empty: Pelco-D doesn't know, while the other one never forgets
  };
  const Row rows[] = {
      {"left", [](Control& c) { return c.StartMove(0, 8); }, "010283", "FF010004200025", ""},
      {"right", [](Control& c) { return c.StartMove(1, 8); }, "010183", "FF010002200023", ""},
      {"up", [](Control& c) { return c.StartMove(2, 8); }, "010498", "FF010008002029", ""},
      {"down", [](Control& c) { return c.StartMove(3, 8); }, "010898", "FF010010002031", ""},
      {"left and up", [](Control& c) { return c.StartMove(4, 8); }, "01069b", "FF01000C20204D", ""},
      {"right and up", [](Control& c) { return c.StartMove(5, 8); }, "01059b", "FF01000A20204B", ""},
      {"left and down", [](Control& c) { return c.StartMove(6, 8); }, "010A9b", "FF010014202055", ""},
      {"right and down", [](Control& c) { return c.StartMove(7, 8); }, "01099b", "FF010012202053", ""},
      {"slowest", [](Control& c) { return c.StartMove(0, 1); }, "010280", "FF010004040009", ""},
      {"fastest diagonal", [](Control& c) { return c.StartMove(4, 16); }, "0106bf", "FF01000C40408D", ""},
      {"zoom out", [](Control& c) { return c.ZoomOut(16); }, "0120FF", "FF010040000041", ""},
      {"speed 0 only forgets", [](Control& c) { return c.StartMove(0, 0); }, "", "", ""},
      {"center", [](Control& c) { return c.Center(1, 2, 3); }, "", "", ""},
      {"zooms", [](Control& c) { return std::min(c.Unzoom(1), c.AreaZoom(1, 2, 3, 4)); }, "", "", ""},
      {"far", [](Control& c) { return c.FocusFar(9); }, "0140FF", "FF010080000081", ""},
      {"focus stop", [](Control& c) { return c.FocusNear(0); }, "0100FF", "FF010027000028", ""},
      {"stop", [](Control& c) { return c.StopMove(); }, "0100FF", "FF010000000001", "a"},
      {"zoom in, focus manual", [](Control& c) { return c.ZoomIn(1); }, "0100D5\n0110FF",
       "FF01002B00002C\nFF010020000021", ""},
      {"open", [](Control& c) { return c.IrisOpen(1); }, "010000", "FF010200000003", ""},
      {"close", [](Control& c) { return c.IrisClose(1); }, "010001", "FF010400000005", ""},
      {"iris stop", [](Control& c) { return c.IrisOpen(0); }, "0100FF", "FF010000000001", ""},
      {"near", [](Control& c) { return c.FocusNear(1); }, "0180FF", "FF010100000002", ""},
      {"no direction, all manual", [](Control& c) { return c.StartMove(12, 5); }, "0100D5\n0100D4\n01",
       "FF01002B00002C\nFF01002D00002E\nFF010000000001", ""},
      {"again", [](Control& c) { return c.StartMove(12, 5); }, "01", "FF010000000001", ""},
      {"to slot 31", [](Control& c) { return c.SelectPreposition(0, "z"); }, "411f00", "FF010007002028", "z"},
      {"a slot that Pelco-D lacks", [](Control& c) { return c.SelectPreposition(0, "far"); }, "413f00",
       "FF010000000001", "far"},
      {"back to slot 0",
       [](Control& c) { return c.SelectPreposition(0, "z") == 1 ? c.SelectPreposition(0, "a") : 0; },
       "411f00\n410000", "FF010007002028\nFF010007000109", "a"},
      {"store", [](Control& c) { return c.StartMove(0, 0) == 1 ? c.AddPreposition("new") : 0; }, "810570",
       "FF010003000206", "new"},
  };
  for (const bool fixed : {true, false}) {
    PtzFixture fixture(fixed ? "1" : "2");
    CXMLPrepositionReader file("Kolvex", fixture.folder.Path());
    file.Open("Kolvex_00:11:22:aB.preset", false);
    ASSERT_TRUE(file.Write(0, 0, {L"a", 0}) && file.Write(0, 5, {L"far", 63}) &&
                file.Write(0, 31, {L"z", 31}) && file.Write(0, 63, {L"far", 63}));
    Control& control = fixture.Control();
    EXPECT_EQ(control.SelectPreposition(0, "a"), 1);
    for (const Row& row : rows) {
      fixture.camera.requests.Clear();
      EXPECT_EQ(row.call(control), 1) << row.name;
      const std::string current = fixed ? "a" : "-23";
      EXPECT_EQ(Current(control), !row.current.empty() ? row.current : current) << row.name;
      // The stop after it shows that nothing else went out.
      ASSERT_EQ(control.StopMove(), 1);
      const std::string frames = fixed ? row.threeByte : row.pelcoD;
      const std::string expected =
          frames + (frames.empty() ? "" : "\n") + (fixed ? "0100FF\n" : "FF010000000001\n");
      const auto lines = static_cast<std::size_t>(std::ranges::count(expected, '\n'));
      EXPECT_EQ(Take(fixture.camera.requests, lines), expected) << row.name;
      control.SelectPreposition(0, "a");
    }
    fixture.camera.requests.Clear();
    EXPECT_EQ(control.DeletePreposition("new"), 1);
    EXPECT_EQ(fixture.camera.requests.Text(), fixed ? "01FFF5\n" : "FF010005000208\n");
    EXPECT_EQ(control.StartMove(0, 17) + control.StartMove(0, -1), -6);
    EXPECT_EQ(control.IsPTZAvailable() + control.CheckValue(7), 2U);
    EXPECT_EQ(control.CheckValue(0), 0U);
    CPtzCapabilities record;
    std::ranges::fill(record.words, 99);
    EXPECT_EQ(control.GetCapabilities(&record), 1);
    const std::vector<u32> words{99, 1, 1, 1, 1, 1, 0, fixed ? 65U : 33U, fixed ? 64U : 3U, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::vector<u32>(std::begin(record.words), std::end(record.words)), words);
    EXPECT_EQ(control.GetCapabilities(nullptr), -3);
    EXPECT_EQ(fixture.messages.Count("OnDebugInfo 1"), 0U);
  }
}

TEST(CPTZControl, HandsNamesOutWholeOrNotAtAll) {
  PtzFixture fixture("2");
  Control& control = fixture.Control();
  const std::string name = "T\xC3\xBCr1";  // five bytes
  ASSERT_EQ(control.AddPreposition(name.c_str()), 1);
  for (const u32 size : {0U, 5U, 6U, 8U}) {
    for (const bool current : {false, true}) {
      std::string buffer = "--------";
      const i32 result = current ? control.GetCurrentPreposition(buffer.data(), size)
                                 : control.GetPrepositionName(0, buffer.data(), size);
      EXPECT_EQ(result, size > name.size() ? 1 : -3) << size;
      EXPECT_EQ(buffer, result == 1 ? name + '\0' + "--" : "--------") << size;
    }
  }
  EXPECT_EQ(control.GetPrepositionName(0, nullptr, 6), -3);
  EXPECT_EQ(control.GetPrepositionName(1, nullptr, 0), -23);
  EXPECT_EQ(control.GetPrepositionName(0xFFFFFFFF, nullptr, 0), -23);
}

// What the host hears of names; list, camera and file are in an operator's day. Nothing refused reaches those.
TEST(CPTZControl, ReportsRenamesAndNamesThatItRefuses) {
  PtzFixture fixture("2");
  Control& control = fixture.Control();
  const std::string add = "OnDebugInfo 1 sarnevo::CPrepositionList::AddPreposition: A preposition \"";
  const std::string notUtf8 =
      "OnDebugInfo 1 sarnevo::CPTZControl::AddPreposition: the name of the "
      "preposition is not UTF-8\n";
  for (const char* const name : {"", "it's", "&", "!", "<", ">", "\"", "a\x01", "\xFF", "a\xC3", "\xED\xA0\x80",
                                 "\xC1\xBF", "\xF4\x90\x80\x80"}) {
    const bool isText = static_cast<unsigned char>(*name) < 0x80 && name != std::string("a\xC3");
    EXPECT_EQ(control.AddPreposition(name), -3);
    EXPECT_EQ(Take(fixture.messages),
              isText ? add + name + "\" cannot be added - the name is invalid.\n" : notUtf8);
    EXPECT_EQ(control.SelectPreposition(0, name), isText ? -23 : -3) << name;
    EXPECT_EQ(control.DeletePreposition(name), isText ? -23 : -3) << name;
    fixture.messages.Clear();
  }
  EXPECT_EQ(control.AddPreposition(nullptr) + control.SelectPreposition(0, nullptr), -6);
  EXPECT_EQ(control.DeletePreposition(nullptr), -3);
  EXPECT_EQ(Names(control) + fixture.camera.requests.Text() + Take(fixture.messages), "");

  std::string names;
  for (int count = 0; count < 32; ++count) {
    ASSERT_EQ(control.AddPreposition(("n" + std::to_string(count)).c_str()), 1);
    names += "n" + std::to_string(count) + ",";
    ASSERT_EQ(control.StartMove(0, 0), 1);
  }
  EXPECT_EQ(control.AddPreposition("one more"), -26);
  EXPECT_EQ(Take(fixture.messages),
            add + "one more\" cannot be added. Camera supports saving not more than 32 prepositions.\n");
  EXPECT_EQ(control.SelectPreposition(0, "n31"), 1);
  fixture.sink.onDebugInfo = [&] {
    control.StartMove(0, 0), Names(control);
  };  // the host moves on in the message
  EXPECT_EQ(control.AddPreposition("B c"), 1);
  EXPECT_EQ(
      Take(fixture.messages),
      "OnDebugInfo 3 sarnevo::CPrepositionList::RenameCurrentPreposition: A preposition with index 31 was "
      "renamed from \"n31\" to \"B c\".\n");
  EXPECT_EQ(Names(control) + Current(control), names.replace(names.find("n31"), 3, "B c") + "-23");
}

}  // namespace
}  // namespace sarnevo
