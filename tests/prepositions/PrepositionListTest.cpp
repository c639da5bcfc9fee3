#include <gtest/gtest.h>

#include <string>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

// The list's dealings with the camera and the file are shown by a day of an operator; here is what the host hears.
TEST(PrepositionList, TellsTheHostOfRenamesAndOfNamesThatItRefuses) {
  const TempFolder folder;
  FakeCamera camera;
  List list(&camera, OpenReader(folder.Path()));
  const auto add = [&](const std::wstring& name) {
    const i32 result = list.AddPreposition(name);
    return std::to_string(result) + " " + camera.TakeLog() + list.Names();
  };
  const auto renamed = [](const std::string& from, const std::string& to) {
    return "1 3 sarnevo::CPrepositionList::RenameCurrentPreposition: A preposition with index 1 was renamed "
           "from \"" +
           from + "\" to \"" + to + "\".; ";
  };
  EXPECT_EQ(add(L"a"), "1 store 0; a*,");
  list.ClearCurrentPreposition();
  EXPECT_EQ(add(L"b"), "1 store 1; a,b*,");
  EXPECT_EQ(add(L"B c"), renamed("b", "B c") + "a,B c*,") << "without a movement";
  EXPECT_TRUE(list.SelectPreposition(L"B c", 7));
  EXPECT_EQ(camera.TakeLog(), "") << "the camera stands there";
  camera.onMessage = [&] { list.ClearCurrentPreposition(), list.Names(); };
  EXPECT_EQ(add(L"b"), renamed("B c", "b") + "a,b,") << "the host moves on in the message";
  camera.onMessage = nullptr;
  EXPECT_EQ(list.RenameCurrentPreposition(L"c"), -18) << "at no position";
  EXPECT_TRUE(list.SelectPreposition(L"a", 7));
  EXPECT_EQ(camera.TakeLog(), "go 0/7; ");

  const std::string why = "1 sarnevo::CPrepositionList::AddPreposition: A preposition \"";
  for (const std::wstring name : {L"it's", L"&", L"!", L"<", L">", L"\"", L"\xDC00", L""}) {
    const std::string text = name == L"\xDC00" ? "\uFFFD" : ToUtf8(name);
    EXPECT_EQ(add(name), "-3 " + why + text + "\" cannot be added - the name is invalid.; a*,b,");
  }
  list.DeletePreposition(L"a");
  for (u32 count = 1; count < 32; ++count) {
    list.ClearCurrentPreposition();
    ASSERT_EQ(list.AddPreposition(L"n" + std::to_wstring(count)), 1);
  }
  list.ClearCurrentPreposition();
  camera.TakeLog();
  EXPECT_EQ(list.AddPreposition(L"one more"), -26);
  EXPECT_EQ(camera.TakeLog(),
            why + "one more\" cannot be added. Camera supports saving not more than 32 prepositions.; ");
}

TEST(PrepositionList, NamesOfAnyLengthAndAllPlanesSurvive) {
  const TempFolder folder;
  FakeCamera camera;
  std::string expected;
  for (const std::wstring& name :
       {std::wstring(10'000, L'x'), std::wstring(1'000, L'\u20ac'), std::wstring(L" \t\n\r "),
        std::wstring(L"\u0000A\uE000\uFFFD\U0001F3A5\U000F0000\U0010FFFF", 7).substr(1)}) {
    List list(&camera, OpenReader(folder.Path()));
    EXPECT_EQ(list.AddPreposition(name), 1);
    expected += ToUtf8(name) + ",";
    EXPECT_EQ(List(&camera, OpenReader(folder.Path())).Names(), expected);
  }
  List list(&camera, OpenReader(folder.Path()));
  EXPECT_EQ(list.AddPreposition(std::wstring((1 << 20) + 1, L'x')), -3) << "more than the file can give back";
}

}  // namespace
}  // namespace sarnevo
