#include <gtest/gtest.h>

#include <functional>

#include "prepositions/ListFixture.h"

namespace sarnevo {
namespace {

// One call on a list, its result, what the camera and the host were told, and the names afterwards.
struct Step {
  const char* name;
  std::function<i32(List&)> run;
  i32 result;
  std::string log;
  std::string names;
};

auto Add(std::wstring name) {
  return [name](List& list) { return list.AddPreposition(name); };
}
auto Select(std::wstring name) {
  return [name](List& list) { return static_cast<i32>(list.SelectPreposition(name, 7)); };
}
auto Delete(std::wstring name) {
  return [name](List& list) { return static_cast<i32>(list.DeletePreposition(name)); };
}
i32 Move(List& list) {
  list.ClearCurrentPreposition();
  return 0;
}

const std::string kRenamed = "3 sarnevo::CPrepositionList::RenameCurrentPreposition: A preposition with index ";
std::string Refused(const std::string& name) {
  return "1 sarnevo::CPrepositionList::AddPreposition: A preposition \"" + name +
         "\" cannot be added - the name is invalid.; ";
}

void Walk(List& list, FakeCamera& camera, const std::vector<Step>& steps, const TempFolder& folder) {
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    EXPECT_EQ(step.run(list), step.result);
    EXPECT_EQ(camera.TakeLog(), step.log);
    EXPECT_EQ(list.Names(), step.names);
    // What a host would find after a restart: the same, but at no known position.
    std::string stored = step.names;
    std::erase(stored, '*');
    EXPECT_EQ(List(nullptr, OpenReader(folder.Path(), true)).Names(), stored);
  }
}

TEST(PrepositionList, NormalModeKeepsListCameraAndFileInStep) {
  const TempFolder folder;
  FakeCamera camera;
  List list(&camera, OpenReader(folder.Path()));
  std::vector<Step> steps{
      {"the first takes slot 0", Add(L"a"), 1, "store 0; ", "a*,"},
      {"again without a movement: a rename", Add(L"A"), 1, kRenamed + "0 was renamed from \"a\" to \"A\".; ",
       "A*,"},
      {"a movement forgets where the camera is", Move, 0, "", "A,"},
      {"the next slot", Add(L"b"), 1, "store 1; ", "A,b*,"},
      {"the current one needs no command", Select(L"b"), 1, "", "A,b*,"},
      {"another is gone to", Select(L"A"), 1, "go 0/7; ", "A*,b,"},
      {"a movement and a third", [](List& list) { return Move(list), list.AddPreposition(L"c d"); }, 1,
       "store 2; ", "A,b,c d*,"},
      {"a delete frees the slot", Delete(L"b"), 1, "delete 1; ", "A,c d,"},
      {"the freed slot is used, the order goes on", Add(L"e"), 1, "store 1; ", "A,c d,e*,"},
      {"an apostrophe", Add(L"it's"), -3, Refused("it's"), "A,c d,e*,"},
      {"a lone surrogate", Add(std::wstring(1, wchar_t{0xDC00})), -3, Refused("\uFFFD"), "A,c d,e*,"},
      {"no name", Add(L""), -3, Refused(""), "A,c d,e*,"},
  };
  for (const wchar_t character : std::wstring(L"&!<>\"")) {
    steps.push_back(
        {"a refused character", Add({character}), -3, Refused({static_cast<char>(character)}), "A,c d,e*,"});
  }
  Walk(list, camera, steps, folder);

  camera.onMessage = [&] { list.ClearCurrentPreposition(), list.Names(); };
  Walk(list, camera,
       {{"the host moves on in the message", Add(L"E"), 1, kRenamed + "2 was renamed from \"e\" to \"E\".; ",
         "A,c d,E,"}},
       folder);
  camera.onMessage = nullptr;
  ASSERT_TRUE(list.SelectPreposition(L"E", 0) && list.AddPreposition(L"e") == 1);
  camera.TakeLog();
  camera.refuses = true;
  Walk(list, camera,
       {{"a refused recall keeps the current one", Select(L"A"), 0, "go 0/7 refused; ", "A,c d,e*,"},
        {"a refused delete keeps the entry", Delete(L"A"), 1, "delete 0 refused; ", "A,c d,e,"},
        {"a refused store adds nothing", Add(L"f"), -18, "store 3 refused; ", "A,c d,e,"}},
       folder);
  camera.refuses = false;

  for (u32 slot = 3; slot < 32; ++slot) {
    list.ClearCurrentPreposition();
    ASSERT_EQ(list.AddPreposition(L"n" + std::to_wstring(slot)), 1);
  }
  camera.TakeLog();
  list.ClearCurrentPreposition();
  EXPECT_EQ(list.AddPreposition(L"one more"), -26);
  EXPECT_EQ(camera.TakeLog(),
            "1 sarnevo::CPrepositionList::AddPreposition: A preposition \"one more\" cannot be added. Camera "
            "supports "
            "saving not more than 32 prepositions.; ");
  std::wstring name = L"left over";
  EXPECT_FALSE(list.GetPrepositionName(32, name));
  EXPECT_EQ(name, L"");
}

TEST(PrepositionList, WithoutCameraOrFileEachOperationFails) {
  const TempFolder folder;
  OpenReader(folder.Path())->Write(0, 0, {L"a", 0});
  List list(nullptr, OpenReader(folder.Path()));
  EXPECT_EQ(list.AddPreposition(L"b"), -18);
  EXPECT_FALSE(list.SelectPreposition(L"a", 0));
  EXPECT_FALSE(list.DeletePreposition(L"a"));
  EXPECT_EQ(list.RenameCurrentPreposition(L"b"), -18);
  EXPECT_EQ(list.Names(), "a,");

  FakeCamera camera;
  List closed(&camera, OpenReader(folder.Path() + "/none"));
  EXPECT_EQ(closed.AddPreposition(L"b"), -18) << "the camera has it and the list, not the file";
  EXPECT_EQ(closed.Names(), "b*,");
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
