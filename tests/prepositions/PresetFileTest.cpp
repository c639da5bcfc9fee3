#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

constexpr char kHead[] = "<?xml version='1.0' encoding='utf-8'?>";

// An entry as it is laid out, behind the white space of what stands before it.
std::string Entry(const char* index, const char* name, const char* slot) {
  const std::string number = index;
  return "\t<Preposition" + number + ">\n\t\t\t\t<Name value=\"" + name +
         "\">\n\t\t\t</Name>\n\t\t\t\t<Slot value=\"" + slot + "\">\n\t\t\t</Slot>\n\t\t</Preposition" +
         number + ">\n\t";
}

TEST(PresetFile, IsWrittenByteForByteAsLaidOut) {
  const TempFolder folder;
  FakeCamera camera;
  auto reader = OpenReader(folder.Path());
  List list(&camera, reader);
  List second(&camera, reader, false, 1);
  const auto file = [&folder] { return folder.Read("p.preset"); };
  EXPECT_EQ(file(), std::string(kHead) + "<Kolvex/>") << "nothing until the first add";

  // The literal first, so that a reader sees the shape; then by entries.
  list.AddPreposition(L"Door");
  EXPECT_EQ(file(),
            "<?xml version='1.0' encoding='utf-8'?><Kolvex><PtzChannel01>\n"
            "\t\t<Preposition000>\n"
            "\t\t\t\t<Name value=\"Door\">\n"
            "\t\t\t</Name>\n"
            "\t\t\t\t<Slot value=\"0\">\n"
            "\t\t\t</Slot>\n"
            "\t\t</Preposition000>\n"
            "\t</PtzChannel01>\n"
            "</Kolvex>");
  const std::string open = std::string(kHead) + "<Kolvex><PtzChannel01>\n\t";
  const std::string close = "</PtzChannel01>\n</Kolvex>";
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + close);
  list.ClearCurrentPreposition();
  list.AddPreposition(L"Hof \u00e4\U0001F3A5");
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + Entry("001", "Hof \u00e4\U0001F3A5", "1") + close);
  list.AddPreposition(L"Yard");
  EXPECT_EQ(file(), open + Entry("000", "Door", "0") + Entry("001", "Yard", "1") + close) << "a rename";
  list.DeletePreposition(L"Door");
  const std::string rewritten =
      std::string(kHead) + "<Kolvex>\n<PtzChannel01>\n\t" + Entry("000", "Yard", "1") + "</PtzChannel01>\n";
  EXPECT_EQ(file(), rewritten + "</Kolvex>") << "only the white space around the channel stays";
  second.AddPreposition(L"Gate");
  EXPECT_EQ(file(),
            rewritten + "<PtzChannel02>\n\t" + Entry("000", "Gate", "0") + "</PtzChannel02>\n</Kolvex>");

  List again(&camera, OpenReader(folder.Path()));
  EXPECT_EQ(again.Names(), "Yard,");
}

// By what is between the root's tags: the list of a normal camera, and the body after the first add.
TEST(PresetFile, WhatOthersWroteIsReadAndNothingOfItIsLostByTheNextAdd) {
  const auto entry = [](const std::string& index, const std::string& name, const std::string& slot) {
    return "<Preposition" + index + "><Name value='" + name + "'/><Slot value='" + slot + "'/></Preposition" +
           index + ">";
  };
  std::string full;
  std::string fullNames;
  for (int i = 0; i < 40; ++i) {
    const std::string number = std::to_string(i);
    full += entry(std::string(3 - number.size(), '0') + number, "n" + number, number);
    fullNames += i < 32 ? "n" + number + "," : "";
  }
  const struct {
    const char* name;
    std::string channel;
    std::string names;
    std::string afterAdd;  // as a new list reads it
  } kFiles[] = {
      {"gaps close up", entry("000", "a", "0") + entry("002", "b", "5") + entry("031", "c", "1"), "a,b,c,",
       "a,b,c,New,"},
      {"leading zeros and what follows the number", entry("000", "a", "007") + entry("001", "b", " +8x"),
       "a,b,", "a,b,New,"},
      {"no number for a slot", entry("000", "a", "x7") + entry("001", "b", "") + entry("002", "c", "-1"), "",
       "New,"},
      {"a number beyond 32 bits", entry("000", "a", "4294967296") + entry("001", "b", "4294967295"), "b,",
       "b,New,"},
      {"slots that the camera doesn't have", entry("000", "a", "99") + entry("001", "b", "32"), "a,b,",
       "a,b,New,"},
      {"no name",
       entry("000", "", "0") + "<Preposition001><Slot value='1'/></Preposition001>" + entry("002", "c", "2"),
       "c,", "c,New,"},
      {"no slot", "<Preposition000><Name value='a'/></Preposition000>" + entry("001", "b", "1"), "b,",
       "b,New,"},
      {"a name too long to be written again",
       entry("000", std::string(2 << 20, 'x'), "0") + entry("001", "b", "1"), "b,", "b,New,"},
      {"doubled entries", entry("000", "a", "0") + entry("000", "b", "1"), "a,", "a,New,"},
      {"a doubled slot has the later name", entry("000", "a", "3") + entry("001", "b", "3"), "b,b,",
       "b,b,New,"},
      {"more than the camera has", full, fullNames, fullNames},
      {"text and other elements", "Door <x/>" + entry("000", "a", "0") + "<Preposition001>b</Preposition001>",
       "a,", "a,New,"},
  };
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    const TempFolder folder;
    folder.Write("p.preset", "<Kolvex><PtzChannel01>" + file.channel + "</PtzChannel01></Kolvex>");
    FakeCamera camera;
    List list(&camera, OpenReader(folder.Path()));
    EXPECT_EQ(list.Names(), file.names);
    list.AddPreposition(L"New");
    EXPECT_EQ(List(&camera, OpenReader(folder.Path())).Names(), file.afterAdd);
  }
  // Another program's document isn't ours to change, nor to empty.
  const TempFolder folder;
  folder.Write("p.preset", "<Other><PtzChannel01/></Other>");
  FakeCamera camera;
  EXPECT_EQ(List(&camera, OpenReader(folder.Path())).AddPreposition(L"New"), -18);
  EXPECT_EQ(folder.Read("p.preset"), "<Other><PtzChannel01/></Other>");
}

TEST(PresetFile, IsMadeOnlyWhenThatIsWanted) {
  const TempFolder folder;
  for (const bool noCreate : {true, false}) {
    CXMLPrepositionReader reader("Kolvex", folder.Path());
    EXPECT_EQ(reader.Open("p.preset", noCreate), !noCreate);
    PrepositionRecord record;
    EXPECT_EQ(reader.Write(0, 0, {L"a", 1}), !noCreate);
    EXPECT_EQ(reader.Read(0, 0, record), !noCreate);
    EXPECT_FALSE(reader.DeleteChannel(1));
    EXPECT_EQ(reader.DeleteChannel(0), !noCreate);
    EXPECT_FALSE(reader.Read(0, 0, record));
  }
}

TEST(PresetFile, ChangesGatherWhileAutomaticSavingIsOff) {
  const TempFolder folder;
  auto reader = OpenReader(folder.Path());
  reader->SetAutoSave(false);
  EXPECT_TRUE(reader->Write(41, 1000, {L"far", 9}));
  EXPECT_THAT(folder.Read("p.preset"), testing::HasSubstr("<Kolvex/>"));
  reader->SetAutoSave(true);
  EXPECT_THAT(folder.Read("p.preset"), testing::HasSubstr("<PtzChannel42>\n\t\t<Preposition1000>"));
  folder.Write("p.preset", "mark");
  reader->SetAutoSave(true);
  EXPECT_EQ(folder.Read("p.preset"), "mark") << "it was on already";
}

}  // namespace
}  // namespace sarnevo
