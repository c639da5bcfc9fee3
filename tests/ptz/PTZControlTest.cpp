#include "ptz/CPTZControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ptz/ControlFixture.h"

namespace sarnevo {
namespace {

using kolvex_test::ControlFixture;
using kolvex_test::Current;
using kolvex_test::Names;

constexpr char kGotoFirst[] = "FF010007000109\n";
constexpr char kStop[] = "FF010000000001\n";

TEST(CPTZControl, MovesAndForgetsWhereTheCameraStood) {
  struct Row {
    const char* name;
    i32 (*call)(IIPPTZApiEx&);
    i32 result;
    const char* requests;
    bool forgets;
  };
  using Control = IIPPTZApiEx;
  constexpr Row kRows[] = {
      {"move", [](Control& c) { return c.StartMove(PtzLeftUp, 8); }, 1, "FF01000C20204D\n", true},
      {"too fast", [](Control& c) { return c.StartMove(PtzLeft, 17); }, -3, "", false},
      {"below 0", [](Control& c) { return c.StartMove(PtzLeft, -1); }, -3, "", false},
      {"speed 0 does nothing but forgets", [](Control& c) { return c.StartMove(PtzLeft, 0); }, 1, "", true},
      {"zoom in", [](Control& c) { return c.ZoomIn(1); }, 1, "FF010020000021\n", true},
      {"zoom out", [](Control& c) { return c.ZoomOut(16); }, 1, "FF010040000041\n", true},
      {"zoom in too fast", [](Control& c) { return c.ZoomIn(17); }, -3, "", false},
      {"zoom 0 is no stop", [](Control& c) { return c.ZoomOut(0); }, 1, "", true},
      {"stop stays", [](Control& c) { return c.StopMove(); }, 1, kStop, false},
      {"center", [](Control& c) { return c.Center(1, 2, 3); }, 1, "", true},
      {"unzoom", [](Control& c) { return c.Unzoom(1); }, 1, "", true},
      {"area zoom", [](Control& c) { return c.AreaZoom(1, 2, 3, 4); }, 1, "", true},
      {"focus near", [](Control& c) { return c.FocusNear(1); }, 1, "FF010100000002\n", true},
      {"focus far", [](Control& c) { return c.FocusFar(9); }, 1, "FF010080000081\n", true},
      {"focus stop", [](Control& c) { return c.FocusNear(0); }, 1, "FF010027000028\n", true},
      {"the same", [](Control& c) { return c.FocusFar(0); }, 1, "FF010027000028\n", true},
      {"iris open", [](Control& c) { return c.IrisOpen(1); }, 1, "FF010200000003\n", true},
      {"iris close", [](Control& c) { return c.IrisClose(1); }, 1, "FF010400000005\n", true},
      {"iris stop", [](Control& c) { return c.IrisOpen(0); }, 1, kStop, true},
      {"move with a manual lens", [](Control& c) { return c.StartMove(PtzRight, 8); }, 1,
       "FF01002B00002C\nFF01002D00002E\nFF010002200023\n", true},
      {"a value of nothing", [](Control& c) { return static_cast<i32>(c.CheckValue(0)); }, 0, "", false},
      {"a value", [](Control& c) { return static_cast<i32>(c.CheckValue(7)); }, 1, "", false},
      {"the same place again", [](Control& c) { return c.SelectPreposition(5, "a"); }, 1, "", false},
      {"nowhere", [](Control& c) { return c.SelectPreposition(5, "b"); }, -23, "", false},
      {"no name", [](Control& c) { return c.SelectPreposition(5, nullptr); }, -3, "", false},
      {"availability", [](Control& c) { return static_cast<i32>(c.IsPTZAvailable()); }, 1, "", false},
  };
  ControlFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  ASSERT_EQ(control.AddPreposition("a"), 1);
  for (const Row& row : kRows) {
    fixture.camera.Requests().Take();
    EXPECT_EQ(row.call(control), row.result) << row.name;
    EXPECT_EQ(Current(control), row.forgets ? "-23" : "a") << row.name;
    // The stop behind it shows that nothing else went out.
    ASSERT_EQ(control.StopMove(), 1);
    const std::string expected = std::string(row.requests) + kStop;
    const auto lines = static_cast<std::size_t>(std::count(expected.begin(), expected.end(), '\n'));
    EXPECT_EQ(fixture.camera.Requests().WaitFor(lines), expected) << row.name;
    fixture.camera.Requests().Take();
    ASSERT_EQ(control.SelectPreposition(0, "a"), 1) << row.name;
    EXPECT_EQ(fixture.camera.Requests().Take(), row.forgets ? kGotoFirst : "") << row.name;
  }
  EXPECT_EQ(fixture.Messages(), "");
}

TEST(CPTZControl, HandsNamesOutWhole) {
  ControlFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  const std::string name = "T\xC3\xBCr1";  // five bytes
  ASSERT_EQ(control.AddPreposition(name.c_str()), 1);
  struct Row {
    const char* name;
    u32 position;
    bool hasBuffer;
    u32 size;
    i32 result;
  };
  constexpr Row kRows[] = {
      {"room for name and end", 0, true, 6, 1},
      {"more room", 0, true, 8, 1},
      {"no room for the end", 0, true, 5, -3},
      {"no room", 0, true, 0, -3},
      {"no buffer", 0, false, 6, -3},
      {"behind the end", 1, true, 6, -23},
      {"behind the end, no buffer", 1, false, 0, -23},
      {"far behind", 0xFFFFFFFF, true, 6, -23},
  };
  for (const Row& row : kRows) {
    std::string buffer = "--------";
    char* const given = row.hasBuffer ? buffer.data() : nullptr;
    EXPECT_EQ(control.GetPrepositionName(row.position, given, row.size), row.result) << row.name;
    EXPECT_EQ(buffer, row.result == 1 ? name + '\0' + "--" : "--------") << row.name;
    if (row.position == 0) {
      buffer = "--------";
      EXPECT_EQ(control.GetCurrentPreposition(given, row.size), row.result) << row.name;
      EXPECT_EQ(buffer, row.result == 1 ? name + '\0' + "--" : "--------") << row.name;
    }
  }
}

TEST(CPTZControl, RefusesWhatIsNoName) {
  struct Row {
    const char* name;
    const char* text;
    const char* invalid;  // result of add, select, delete
  };
  const Row rows[] = {
      {"null", nullptr, "-3 -3 -3"},
      {"empty", "", "-3 -23 -23"},
      {"a refused character", "a'b", "-3 -23 -23"},
      {"a control character", "a\x01", "-3 -23 -23"},
      {"a byte of no character", "a\xFF", "-3 -3 -3"},
      {"a torn character", "a\xC3", "-3 -3 -3"},
      {"an overlong form", "a\xC0\x80", "-3 -3 -3"},
      {"a lone surrogate", "a\xED\xA0\x80", "-3 -3 -3"},
      {"beyond Unicode", "a\xF4\x90\x80\x80", "-3 -3 -3"},
  };
  ControlFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  for (const Row& row : rows) {
    EXPECT_EQ(std::to_string(control.AddPreposition(row.text)) + " " +
                  std::to_string(control.SelectPreposition(0, row.text)) + " " +
                  std::to_string(control.DeletePreposition(row.text)),
              row.invalid)
        << row.name;
  }
  EXPECT_EQ(control.GetPrepositionCount(), 0U);
  EXPECT_EQ(fixture.camera.Requests().Text(), "");
  fixture.Messages();
  control.AddPreposition("\xFF");
  EXPECT_EQ(fixture.Messages(),
            "OnDebugInfo 1 sarnevo::CPTZControl::AddPreposition: the name of the preposition is not UTF-8\n");
}

TEST(CPTZControl, KeepsPositionsInBothProtocols) {
  struct Row {
    const char* name;
    i32 (*call)(IIPPTZApiEx&);
    i32 result[2];  // protocol 1, 2
    const char* requests[2];
    const char* current[2];
  };
  using Control = IIPPTZApiEx;
  constexpr Row kRows[] = {
      {"add",
       [](Control& c) { return c.AddPreposition("Door"); },
       {1, 1},
       {"810570\n", "FF010003000105\n"},
       {"Door", "Door"}},
      {"add again renames",
       [](Control& c) { return c.AddPreposition("Gate"); },
       {1, 1},
       {"810570\n", ""},
       {"Gate", "Gate"}},
      {"move", [](Control& c) { return c.StartMove(PtzLeft, 0); }, {1, 1}, {"", ""}, {"Gate", "-23"}},
      {"add elsewhere",
       [](Control& c) { return c.AddPreposition("Yard"); },
       {1, 1},
       {"810570\n", "FF010003000206\n"},
       {"Yard", "Yard"}},
      {"select",
       [](Control& c) { return c.SelectPreposition(0, "empty p10 "); },
       {1, -23},
       {"410a00\n", ""},
       {"empty p10 ", "Yard"}},
      {"select the first",
       [](Control& c) { return c.SelectPreposition(0, "Gate"); },
       {-23, 1},
       {"", "FF010007000109\n"},
       {"empty p10 ", "Gate"}},
      {"delete",
       [](Control& c) { return c.DeletePreposition("Yard"); },
       {1, 1},
       {"01FFF5\n", "FF010005000208\n"},
       {"empty p0 ", "-23"}},
      {"delete what isn't there",
       [](Control& c) { return c.DeletePreposition("Yard"); },
       {1, -23},
       {"01FFF5\n", ""},
       {"empty p0 ", "-23"}},
  };
  for (const int protocol : {1, 2}) {
    ControlFixture fixture(std::to_string(protocol));
    IIPPTZApiEx& control = fixture.Control();
    const auto at = static_cast<std::size_t>(protocol - 1);
    for (const Row& row : kRows) {
      EXPECT_EQ(row.call(control), row.result[at]) << protocol << " " << row.name;
      EXPECT_EQ(fixture.camera.Requests().Take(), row.requests[at]) << protocol << " " << row.name;
      EXPECT_EQ(Current(control), row.current[at]) << protocol << " " << row.name;
    }
    EXPECT_EQ(control.GetPrepositionCount(), protocol == 1 ? 64U : 1U);
  }
}

TEST(CPTZControl, TellsItsLimitAndCount) {
  struct Row {
    const char* protocol;
    u32 limit;
    u32 count;
  };
  for (const Row& row : {Row{"0", 33, 3}, Row{"1", 65, 64}, Row{"2", 33, 3}}) {
    ControlFixture fixture(row.protocol);
    IIPPTZApiEx& control = fixture.Control();
    for (const char* name : {"a", "b", "c"}) {
      control.StopMove();
      control.StartMove(PtzLeft, 0);
      ASSERT_EQ(control.AddPreposition(name), 1);
    }
    CPtzCapabilities record;
    std::fill(std::begin(record.words), std::end(record.words), 99);
    EXPECT_EQ(control.GetCapabilities(&record), 1);
    const u32 expected[] = {99, 1, 1, 1, 1, 1, 0, row.limit, row.count, 0, 0, 0, 0, 0};
    EXPECT_TRUE(std::equal(std::begin(record.words), std::end(record.words), expected)) << row.protocol;
    EXPECT_EQ(control.GetCapabilities(nullptr), -3);
  }
}

TEST(CPTZControl, StoresUpToTheCamerasLimit) {
  ControlFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  for (int i = 1; i <= 33; ++i) {
    control.StartMove(PtzLeft, 0);
    EXPECT_EQ(control.AddPreposition(("p" + std::to_string(i)).c_str()), i <= 32 ? 1 : -26) << i;
  }
  EXPECT_EQ(fixture.camera.Requests().Count(), 32U);
  EXPECT_TRUE(fixture.camera.Requests().Text().ends_with("FF010003002024\n"));
  // What a restarted host finds.
  const std::string names = Names(control);
  fixture.Restart();
  EXPECT_EQ(Names(fixture.Control()), names);
}

TEST(CPTZControl, FailsWhenTheCameraDoes) {
  ControlFixture fixture("2");
  IIPPTZApiEx& control = fixture.Control();
  ASSERT_EQ(control.AddPreposition("a"), 1);
  control.StartMove(PtzLeft, 0);
  fixture.camera.SetAnswer(kolvex_test::SerialCamera::Refuse);
  EXPECT_EQ(control.AddPreposition("b"), -18);
  EXPECT_EQ(control.SelectPreposition(0, "a"), -23);
  EXPECT_EQ(control.StartMove(PtzLeft, 1), 1) << "nobody hears of a movement that fails";
  EXPECT_EQ(Names(control), "a,");
}

}  // namespace
}  // namespace sarnevo
