#include "ptz/CPTZControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "ptz/PtzFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::Current;
using kolvex_test::PtzFixture;
using kolvex_test::Take;
using Control = IIPPTZApiEx;

// In front of a movement the lens goes back to automatic, focus first.
TEST(CPTZControl, MovesAndForgetsWhereTheCameraStood) {
  struct Row {
    const char* name;
    i32 (*call)(Control&);
    i32 result;
    const char* requests[2];  // protocol 1 and 2
    bool forgets;             // protocol 2; protocol 1 never does
  };
  constexpr Row kRows[] = {
      {"move", [](Control& c) { return c.StartMove(0, 1); }, 1, {"010280\n", "FF010004040009\n"}, true},
      {"too fast", [](Control& c) { return c.StartMove(0, 17); }, -3, {"", ""}, false},
      {"below 0", [](Control& c) { return c.StartMove(0, -1); }, -3, {"", ""}, false},
      {"speed 0 only forgets", [](Control& c) { return c.StartMove(0, 0); }, 1, {"", ""}, true},
      {"zoom out", [](Control& c) { return c.ZoomOut(16); }, 1, {"0120FF\n", "FF010040000041\n"}, true},
      {"center", [](Control& c) { return c.Center(1, 2, 3); }, 1, {"", ""}, true},
      {"unzoom", [](Control& c) { return c.Unzoom(1); }, 1, {"", ""}, true},
      {"area zoom", [](Control& c) { return c.AreaZoom(1, 2, 3, 4); }, 1, {"", ""}, true},
      {"far", [](Control& c) { return c.FocusFar(9); }, 1, {"0140FF\n", "FF010080000081\n"}, true},
      {"focus stop", [](Control& c) { return c.FocusNear(0); }, 1, {"0100FF\n", "FF010027000028\n"}, true},
      {"stop", [](Control& c) { return c.StopMove(); }, 1, {"0100FF\n", "FF010000000001\n"}, false},
      {"zoom, focus manual",
       [](Control& c) { return c.ZoomIn(1); },
       1,
       {"0100D5\n0110FF\n", "FF01002B00002C\nFF010020000021\n"},
       true},
      {"open", [](Control& c) { return c.IrisOpen(1); }, 1, {"010000\n", "FF010200000003\n"}, true},
      {"close", [](Control& c) { return c.IrisClose(1); }, 1, {"010001\n", "FF010400000005\n"}, true},
      {"iris stop", [](Control& c) { return c.IrisOpen(0); }, 1, {"0100FF\n", "FF010000000001\n"}, true},
      {"near", [](Control& c) { return c.FocusNear(1); }, 1, {"0180FF\n", "FF010100000002\n"}, true},
      {"no direction, all manual",
       [](Control& c) { return c.StartMove(12, 5); },
       1,
       {"0100D5\n0100D4\n01\n", "FF01002B00002C\nFF01002D00002E\nFF010000000001\n"},
       true},
      {"again", [](Control& c) { return c.StartMove(12, 5); }, 1, {"01\n", "FF010000000001\n"}, true},
      {"a value", [](Control& c) { return i32(10 * c.CheckValue(7) + c.CheckValue(0)); }, 10, {"", ""}, false},
      {"availability", [](Control& c) { return i32(c.IsPTZAvailable()); }, 1, {"", ""}, false},
  };
  for (const std::size_t protocol : {0, 1}) {
    PtzFixture fixture(protocol == 0 ? "1" : "2");
    Control& control = fixture.Control();
    ASSERT_EQ(control.AddPreposition("a"), 1);
    const std::string stop = protocol == 0 ? "0100FF\n" : "FF010000000001\n";
    for (const Row& row : kRows) {
      fixture.camera.requests.Clear();
      EXPECT_EQ(row.call(control), row.result) << row.name;
      EXPECT_EQ(Current(control), row.forgets && protocol == 1 ? "-23" : "a") << row.name;
      // The stop behind it shows that nothing else went out.
      ASSERT_EQ(control.StopMove(), 1);
      const std::string expected = row.requests[protocol] + stop;
      const auto lines = static_cast<std::size_t>(std::count(expected.begin(), expected.end(), '\n'));
      EXPECT_EQ(Take(fixture.camera.requests, lines), expected) << row.name;
      EXPECT_EQ(control.SelectPreposition(0, "a"), 1) << row.name;
    }
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

// By what adding, selecting and deleting give. Nothing of it reaches list or camera.
TEST(CPTZControl, RefusesWhatIsNoName) {
  const std::pair<const char*, std::array<i32, 3>> rows[] = {
      {nullptr, {-3, -3, -3}},        {"", {-3, -23, -23}},    {"a'b", {-3, -23, -23}},
      {"a\x01", {-3, -23, -23}},      {"a\xFF", {-3, -3, -3}}, {"a\xC3", {-3, -3, -3}},
      {"a\xED\xA0\x80", {-3, -3, -3}}};
  PtzFixture fixture("2");
  Control& control = fixture.Control();
  for (const auto& [text, results] : rows) {
    const std::array<i32, 3> found{control.AddPreposition(text), control.SelectPreposition(0, text),
                                   control.DeletePreposition(text)};
    EXPECT_EQ(found, results) << (text != nullptr ? text : "null");
  }
  EXPECT_EQ(control.GetPrepositionCount(), 0U);
  EXPECT_EQ(fixture.camera.requests.Text(), "");
  fixture.messages.Clear();
  control.AddPreposition("\xFF");
  EXPECT_EQ(fixture.messages.Text(),
            "OnDebugInfo 1 sarnevo::CPTZControl::AddPreposition: the name of the preposition is not UTF-8\n");
}

TEST(CPTZControl, FillsTheCapabilitiesWordByWord) {
  for (const bool fixedSlots : {false, true}) {
    PtzFixture fixture(fixedSlots ? "1" : "2");
    Control& control = fixture.Control();
    ASSERT_EQ(control.AddPreposition("a"), 1);
    CPtzCapabilities record;
    std::fill(std::begin(record.words), std::end(record.words), 99);
    EXPECT_EQ(control.GetCapabilities(&record), 1);
    const std::vector<u32> words{99, 1, 1, 1, 1, 1, 0, fixedSlots ? 65U : 33U, fixedSlots ? 64U : 1U,
                                 0,  0, 0, 0, 0};
    EXPECT_EQ(std::vector<u32>(std::begin(record.words), std::end(record.words)), words);
    EXPECT_EQ(control.GetCapabilities(nullptr), -3);
  }
}

}  // namespace
}  // namespace sarnevo
