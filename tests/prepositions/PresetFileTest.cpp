#include <gtest/gtest.h>

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

}  // namespace
}  // namespace sarnevo
