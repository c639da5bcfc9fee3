#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
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
      {"names of any length and all planes, written again behind a gap",
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
      {"a name in another namespace",
       "<Preposition000><Name xmlns:x='u' x:value='a'/><Slot value='0'/></Preposition000>" +
           entry("001", "b", "1"),
       "b,"},
      {"doubled entries", entry("000", "a", "0") + entry("000", "b", "1"), "a,"},
      {"a doubled slot has the later name", entry("000", "a", "3") + entry("001", "b", "3"), "b,b,"},
  };
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    const TempFolder folder;
    folder.Write("p.preset", "<Kolvex><PtzChannel01>" + file.channel + "</PtzChannel01></Kolvex>");
    List list(folder.Path());
    EXPECT_EQ(list.Names(), file.names);
    list.AddPreposition(L"New");
    EXPECT_EQ(List(folder.Path()).Names(), file.names + "New,");
  }
  // Another program's document isn't ours to change, nor to empty.
  const TempFolder folder;
  folder.Write("p.preset", "<Other><PtzChannel01/></Other>");
  EXPECT_EQ(List(folder.Path()).AddPreposition(L"New"), -18);
  EXPECT_EQ(folder.Read("p.preset"), "<Other><PtzChannel01/></Other>");
}

// What a list that has lost nothing shows, and what it shows after a restart.
TEST(PresetFile, HoldsWhatTheListShowsWhateverStoodInItAndWhateverTheHostDoesInAMessage) {
  const auto entry = [](const std::string& index, const std::string& name, const std::string& slot) {
    return "<Preposition" + index + "><Name value='" + name + "'/><Slot value='" + slot + "'/></Preposition" +
           index + ">";
  };
  const std::string doubled = entry("000", "a", "3") + entry("001", "b", "1") + entry("002", "c", "3");
  const struct {
    const char* name;
    std::string channel;
    bool fixed;
    std::function<void(List&)> inMessage;
    const char* names;  // the first three behind two renames of the first
  } kRows[] = {
      {"a gap", entry("001", "a", "1") + entry("002", "b", "2"), false, nullptr, "new,b,"},
      {"a doubled slot", doubled, false, nullptr, "new,b,new,"},
      {"a doubled slot of fixed ones", doubled, true, nullptr, "new,b,new,"},
      {"a deletion in the message", doubled, false, [](List& list) { list.DeletePreposition(L"b"); },
       "first,first,"},
      {"a deletion of what was renamed", entry("000", "a", "0") + entry("001", "b", "1"), false,
       [](List& list) { list.DeletePreposition(L"first"), list.DeletePreposition(L"new"); }, "b,"},
      {"a deletion of all in the message", doubled, true, [](List& list) { list.DeletePreposition(L""); },
       "empty p0 ,empty p1 ,empty p2 ,"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    const TempFolder folder;
    folder.Write("p.preset", "<Kolvex><PtzChannel01>" + row.channel + "</PtzChannel01></Kolvex>");
    List list(OpenReader(folder.Path()), 0, row.fixed);
    if (row.inMessage) {
      list.onMessage = [&] { row.inMessage(list); };
    }
    std::wstring name;
    list.GetPrepositionName(0, name);
    list.SelectPreposition(name, 0);
    EXPECT_EQ(list.AddPreposition(L"first"), 1);
    if (list.GetCurrentPreposition(name)) {
      EXPECT_EQ(list.AddPreposition(L"new"), 1);
    }
    const std::string names = list.Names();
    EXPECT_EQ(names.substr(0, std::string(row.names).size()), row.names);
    EXPECT_EQ(List(OpenReader(folder.Path()), 0, row.fixed).Names(), names);
  }
}

// No folder, or a file that isn't one: nothing can be stored, and nothing is lost of the list.
TEST(PresetFile, ThatCantBeMadeLeavesAListThatWorks) {
  for (const bool fixed : {false, true}) {
    const TempFolder folder;
    std::filesystem::create_directory(folder / "p.preset");
    List list(OpenReader(folder.Path()), 0, fixed);
    const std::string names = list.Names();
    EXPECT_EQ(list.AddPreposition(L"a"), -18);
    EXPECT_EQ(list.Names().substr(0, 2), "a,");
    EXPECT_TRUE(list.DeletePreposition(L"a"));
    EXPECT_EQ(list.Names(), names);
    EXPECT_EQ(list.SelectPreposition(L"empty p7 ", 0), fixed);
    EXPECT_EQ(list.AddPreposition(L"b"), -18);
  }
}

// A camera's names are worth keeping, but not without end.
TEST(PresetFile, OfFilesPutAsideTheOldestGoes) {
  const TempFolder folder;
  const auto kept = [](int number) {
    return "p.preset.bad" + (number == 0 ? "" : "." + std::to_string(number));
  };
  for (int torn = 0; torn < 103; ++torn) {
    folder.Write("p.preset", "<torn" + std::to_string(torn));
    const timespec when{1'700'000'000 + torn, 0};
    const timespec times[] = {when, when};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "p.preset").c_str(), times, 0), 0);
    OpenReader(folder.Path());
    ASSERT_EQ(folder.Read(kept(torn % 100)), "<torn" + std::to_string(torn));
    ASSERT_EQ(List(folder.Path()).AddPreposition(L"a"), 1);
  }
  EXPECT_EQ(folder.List().size(), 101U);
}

}  // namespace
}  // namespace sarnevo
