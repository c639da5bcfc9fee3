#include "platform/FileReplacement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/TempFolder.h"

namespace sarnevo::platform {
namespace {

using testing::ElementsAre;

mode_t ModeOf(const std::string& path) {
  struct stat facts = {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

TEST(FileReplacement, KeepsRightsAndFollowsLinks) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "data");
  folder.Write("data/real", "old");
  ASSERT_EQ(::chmod((folder / "data/real").c_str(), 0640), 0);
  std::filesystem::create_symlink("data/real", folder / "relative");
  std::filesystem::create_symlink(folder / "relative", folder / "chain");
  std::filesystem::create_symlink("data/later", folder / "dangling");
  std::filesystem::create_symlink("loop", folder / "loop");
  std::filesystem::create_directory(folder / "place");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);

  const struct {
    const char* path;
    bool done;
    const char* file;  // what must hold the content, or be as it was
  } kRows[] = {
      {"data/real", true, "data/real"},
      {"relative", true, "data/real"},
      {"chain", true, "data/real"},
      {"dangling", true, "data/later"},
      {"new", true, "new"},
      {"loop", false, "loop"},
      {"place", false, "place"},
      {"pipe", false, nullptr},
      {"none/new", false, "none"},
      {"data/real/below", false, "none"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(ReplaceFile(folder / row.path, row.path), row.done);
    if (row.done) {
      EXPECT_EQ(folder.Read(row.file), row.path);
    }
  }
  EXPECT_EQ(ModeOf(folder / "data/real"), 0640U);
  for (const char* link : {"relative", "chain", "dangling"}) {
    EXPECT_TRUE(std::filesystem::is_symlink(folder / link)) << link;
  }
  const mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(ModeOf(folder / "new"), 0666U & ~mask);
  EXPECT_THAT(folder.List(),
              ElementsAre("chain", "dangling", "data", "loop", "new", "pipe", "place", "relative"));
}

TEST(FileReplacement, KeepsOldContentUnderNamesOfItsOwn) {
  const TempFolder folder;
  const std::string longest(255, 'n');  // no room for ".bad"
  EXPECT_TRUE(ReplaceFile(folder / "f", "", OldContent::KeepAside)) << "nothing to keep";
  for (const char* content : {"1", "2", "3"}) {
    EXPECT_TRUE(ReplaceFile(folder / "f", content, OldContent::KeepAside));
  }
  EXPECT_TRUE(ReplaceFile(folder / longest, "1"));
  EXPECT_FALSE(ReplaceFile(folder / longest, "2", OldContent::KeepAside)) << "what can't be kept stays";
  EXPECT_EQ(folder.Read(longest), "1");
  EXPECT_THAT(folder.List(), ElementsAre("f", "f.bad", "f.bad.1", longest));
  EXPECT_EQ(folder.Read("f") + folder.Read("f.bad") + folder.Read("f.bad.1"), "312");
}

TEST(FileReplacement, OnlyOldLeftoversOfOurOwnAreRemoved) {
  const TempFolder folder;
  const std::time_t now = std::time(nullptr);
  const struct {
    const char* name;
    std::time_t age;
  } kFiles[] = {
      {".kolvex-1-0.tmp", 3700}, {".kolvex-1-1.tmp", 3500}, {".kolvex-1-2", 3700}, {"other.tmp", 3700}};
  for (const auto& file : kFiles) {
    folder.Write(file.name, "x");
    const timespec times[] = {{now - file.age, 0}, {now - file.age, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / file.name).c_str(), times, 0), 0);
  }
  RemoveLeftovers(folder / "f");
  EXPECT_THAT(folder.List(), ElementsAre(".kolvex-1-1.tmp", ".kolvex-1-2", "other.tmp"));
}

}  // namespace
}  // namespace sarnevo::platform
