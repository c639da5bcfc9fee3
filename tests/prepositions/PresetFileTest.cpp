#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <string>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

TEST(PresetFile, IsWrittenByteForByteAsLaidOut) {
  const TempFolder folder;
  const auto reader = OpenReader(folder.Path());
  List list(reader), second(reader, 1);
  const auto compare = [&](const std::string& step) {
    std::ifstream wanted(KOLVEX_WRITTEN "/" + step + ".preset", std::ios::binary);
    EXPECT_EQ(folder.Read("p.preset"), std::string(std::istreambuf_iterator<char>(wanted), {})) << step;
  };
  compare("1-empty");  // until the first add
  list.AddPreposition(L"Door");
  compare("2-add");
  list.ClearCurrentPreposition();
  list.AddPreposition(L"Hof \u00e4\U0001F3A5");
  compare("3-add");
  list.AddPreposition(L"Yard");
  compare("4-rename");
  list.DeletePreposition(L"Door");
  compare("5-delete");  // only the white space around the channel stays
  second.AddPreposition(L"Gate");
  compare("6-second-channel");
}

// By what is between the root's tags: the list of a normal camera, and the body after the first add.
TEST(PresetFile, WhatOthersWroteIsReadAndNothingOfItIsLostByTheNextAdd) {
  const auto entry = [](const std::string& index, const std::string& name, const std::string& slot) {
    return "<Preposition" + index + "><Name value='" + name + "'/><Slot value='" + slot + "'/></Preposition" +
           index + ">";
  };
  const struct {
    const char* name;
    std::string channel;
    std::string names;
  } kFiles[] = {
      {"names of any length and all planes, written again after a gap",
       entry("001", std::string(10'000, 'x'), "0") +
           entry("002", "&#9;&#10;&#13; A\uE000\uFFFD\U000F0000\U0010FFFF", "1"),
       std::string(10'000, 'x') + ",\t\n\r A\uE000\uFFFD\U000F0000\U0010FFFF,"},
      {"gaps close up", entry("000", "a", "0") + entry("002", "b", "5") + entry("031", "c", "1"), "a,b,c,"},
      {"leading zeros and what follows", entry("000", "a", "007") + entry("001", "b", " +8x"), "a,b,"},
      {"no number", entry("000", "a", "x7") + entry("001", "b", "") + entry("002", "c", "-1"), ""},
      {"beyond 32 bits", entry("000", "a", "4294967296") + entry("001", "b", "4294967295"), "b,"},
      {"slots that the camera doesn't have", entry("000", "a", "99") + entry("001", "b", "32"), "a,b,"},
      {"no name or no slot",
       entry("000", "", "0") + "<Preposition001><Name value='a'/></Preposition001>" + entry("002", "c", "2"),
       "c,"},
      {"too long to be written again", entry("000", std::string(2 << 20, 'x'), "0") + entry("001", "b", "1"),
       "b,"},
      {"doubled entries", entry("000", "a", "0") + entry("000", "b", "1"), "a,"},
      {"a doubled slot has the later name", entry("000", "a", "3") + entry("001", "b", "3"), "b,b,"},
      {"a doubled slot after a gap", entry("002", "a", "3") + entry("004", "a", "3"), "a,a,"},
      {"a name of another namespace",
       "<Preposition000><Name xmlns:x='u' x:value='a'/><Slot value='0'/></Preposition000>" +
           entry("001", "b", "1"),
       "b,"},
  };
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    const TempFolder folder;
    folder.Write("p.preset", "<Kolvex><PtzChannel01>" + file.channel + "</PtzChannel01></Kolvex>");
    List list(folder.Path());
    EXPECT_EQ(list.Names(), file.names);
    list.AddPreposition(L"New");
    EXPECT_EQ(List(folder.Path()).Names(), file.names + "New,");
    std::wstring first;
    list.GetPrepositionName(0, first);
    EXPECT_TRUE(list.SelectPreposition(first, 0) && list.AddPreposition(L"Renamed") == 1);
    EXPECT_EQ(List(folder.Path()).Names(), list.Names());
  }
  // Another program's document isn't ours to change, nor to empty.
  const TempFolder folder;
  folder.Write("p.preset", "<Other><PtzChannel01/></Other>");
  EXPECT_EQ(List(folder.Path()).AddPreposition(L"New"), -18);
  EXPECT_EQ(folder.Read("p.preset"), "<Other><PtzChannel01/></Other>");
}

// What the host does inside of the message about a rename.
TEST(PresetFile, AgreesWithTheListAfterWhatTheHostDoesInsideAMessage) {
  const struct {
    const char* name;
    void (*call)(List&);
  } kCalls[] = {
      {"deletes the renamed one", [](List& list) { list.DeletePreposition(L"new"); }},
      {"deletes the one before it", [](List& list) { list.DeletePreposition(L"a"); }},
      {"renames once more", [](List& list) { list.AddPreposition(L"newer"); }},
      {"moves and stores", [](List& list) { list.ClearCurrentPreposition(), list.AddPreposition(L"c"); }},
  };
  for (const bool fixedSlots : {false, true}) {
    for (const auto& [name, call] : kCalls) {
      SCOPED_TRACE(name);
      const TempFolder folder;
      List list(OpenReader(folder.Path()), 0, fixedSlots);
      list.AddPreposition(L"a");
      list.ClearCurrentPreposition();
      list.SelectPreposition(L"empty p1 ", 0);
      list.AddPreposition(L"b");
      list.onMessage = [&] { call(list); };
      const i32 result = list.AddPreposition(L"new");
      EXPECT_TRUE(result == 1 || fixedSlots) << result;
      EXPECT_EQ(List(OpenReader(folder.Path()), 0, fixedSlots).Names(), list.Names());
    }
  }
}

// The camera stores and forgets all the same.
TEST(PresetFile, ThatCannotBeMadeLeavesTheListInOrder) {
  const TempFolder folder;
  List normal(OpenReader(folder / "missing")), fixed(OpenReader(folder / "missing"), 0, true);
  const std::string placeholders = fixed.Names();
  EXPECT_EQ(normal.AddPreposition(L"a"), -18);
  EXPECT_EQ(fixed.AddPreposition(L"a"), -18);
  EXPECT_EQ(normal.Names() + fixed.Names().substr(0, 10), "a,a,empty p1");
  EXPECT_TRUE(normal.DeletePreposition(L"a") && fixed.DeletePreposition(L"a"));
  EXPECT_EQ(normal.Names(), "");
  EXPECT_EQ(fixed.Names(), placeholders);
  EXPECT_TRUE(fixed.SelectPreposition(L"empty p7 ", 0));
}

TEST(PresetFile, ARewriteThatFailsTakesBackItsOwnChannelAlone) {
  const TempFolder folder;
  const auto reader = OpenReader(folder.Path());
  List list(reader), second(reader, 1);
  list.AddPreposition(L"Door");
  second.AddPreposition(L"Gate");
  const PrepositionRecord unfit[] = {{L"Yard", 0}, {L"\x1", 1}};  // of which the file can't carry one
  EXPECT_EQ(reader->Rewrite(0, unfit), CXMLPrepositionReader::Saving::NotMade);
  // Each of them fits, and all together are more than a file may hold: an "&" takes five bytes.
  const std::vector<PrepositionRecord> tooMany(14, {std::wstring(1'000'000, L'&'), 0});
  EXPECT_EQ(reader->Rewrite(0, tooMany), CXMLPrepositionReader::Saving::NotMade);
  EXPECT_TRUE(reader->SetAutoSave(false) && reader->SetAutoSave(true)) << "nothing of them is in the next save";
  EXPECT_EQ(List(folder.Path()).Names() + List(OpenReader(folder.Path()), 1).Names(), "Door,Gate,");
}

// A camera's names are worth keeping, but not without end.
TEST(PresetFile, OfFilesPutAsideTheOldestGoes) {
  const TempFolder folder;
  for (int torn = 0; torn < 103; ++torn) {
    folder.Write("p.preset", "<torn" + std::to_string(torn));
    const timespec when{1'700'000'000 + torn, 0};
    const timespec times[] = {when, when};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "p.preset").c_str(), times, 0), 0);
    OpenReader(folder.Path());
    const int number = torn % 100;
    ASSERT_EQ(folder.Read("p.preset.bad" + (number == 0 ? "" : "." + std::to_string(number))),
              "<torn" + std::to_string(torn));
    ASSERT_EQ(List(folder.Path()).AddPreposition(L"a"), 1);
  }
  EXPECT_EQ(folder.List().size(), 101U);
}

}  // namespace
}  // namespace sarnevo
