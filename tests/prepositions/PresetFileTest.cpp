#include <gtest/gtest.h>

#include <functional>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

// An entry as it is laid out, behind the white space of what stands before it.
std::string Entry(const std::string& index, const std::string& name, const std::string& slot) {
  return "\t<Preposition" + index + ">\n\t\t\t\t<Name value=\"" + name +
         "\">\n\t\t\t</Name>\n\t\t\t\t<Slot value=\"" + slot + "\">\n\t\t\t</Slot>\n\t\t</Preposition" + index +
         ">\n\t";
}

TEST(PresetFile, IsWrittenByteForByteAsLaidOut) {
  const TempFolder folder;
  FakeCamera camera;
  auto reader = OpenReader(folder.Path());
  List list(&camera, reader);
  List second(&camera, reader, false, 1);
  const std::string head = "<?xml version='1.0' encoding='utf-8'?><Kolvex";
  const auto file = [&folder] { return folder.Read("p.preset"); };
  EXPECT_EQ(file(), head + "/>") << "nothing until the first add";

  list.AddPreposition(L"Door");
  const std::string open = head + "><PtzChannel01>\n\t", close = "</PtzChannel01>\n</Kolvex>";
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + close);
  list.ClearCurrentPreposition();
  list.AddPreposition(L"Hof \u00e4\U0001F3A5");
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + Entry("001", "Hof \u00e4\U0001F3A5", "1") + close);
  list.AddPreposition(L"Yard");
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + Entry("001", "Yard", "1") + close) << "a rename";
  list.DeletePreposition(L"Door");
  const std::string rewritten =
      head + ">\n<PtzChannel01>\n\t" + Entry("000", "Yard", "1") + "</PtzChannel01>\n";
  EXPECT_EQ(file(), rewritten + "</Kolvex>") << "only the white space around the channel stays";
  second.AddPreposition(L"Gate");
  EXPECT_EQ(file(),
            rewritten + "<PtzChannel02>\n\t" + Entry("000", "Gate", "0") + "</PtzChannel02>\n</Kolvex>");
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
    const char* names;
  } kFiles[] = {
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
    FakeCamera camera;
    List list(&camera, OpenReader(folder.Path()));
    EXPECT_EQ(list.Names(), file.names);
    list.AddPreposition(L"New");
    EXPECT_EQ(List(&camera, OpenReader(folder.Path())).Names(), std::string(file.names) + "New,");
  }
  // Another program's document isn't ours to change, nor to empty.
  const TempFolder folder;
  folder.Write("p.preset", "<Other><PtzChannel01/></Other>");
  FakeCamera camera;
  EXPECT_EQ(List(&camera, OpenReader(folder.Path())).AddPreposition(L"New"), -18);
  EXPECT_EQ(folder.Read("p.preset"), "<Other><PtzChannel01/></Other>");
}

}  // namespace
}  // namespace sarnevo
