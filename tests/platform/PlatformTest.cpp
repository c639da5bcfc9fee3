#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "platform/FileReplacement.h"
#include "support/TempFolder.h"

namespace sarnevo::platform {
namespace {

using testing::ElementsAre;

TEST(FileReplacement, KeepsRightsAndFollowsLinks) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "data");
  folder.Write("data/real", "old");
  ASSERT_EQ(::chmod((folder / "data/real").c_str(), 0640), 0);
  std::filesystem::create_symlink("data/real", folder / "relative");
  std::filesystem::create_symlink(folder / "relative", folder / "chain");
  std::filesystem::create_symlink("data/later", folder / "dangling");
  std::filesystem::create_symlink("loop", folder / "loop");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const struct {
    const char* path;
    const char* file;  // what must hold the content then; null when it can't be done
  } kRows[] = {
      {"relative", "data/real"}, {"chain", "data/real"}, {"dangling", "data/later"}, {"new", "new"},
      {"loop", nullptr},         {"data", nullptr},      {"pipe", nullptr},          {"none/new", nullptr}};
  for (const auto& row : kRows) {
    EXPECT_EQ(ReplaceFile(folder / row.path, row.path), row.file != nullptr) << row.path;
    if (row.file != nullptr) {
      EXPECT_EQ(folder.Read(row.file), row.path);
    }
  }
  struct stat facts = {};
  EXPECT_EQ(::stat((folder / "data/real").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777U, 0640U);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "chain"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "dangling"));
  EXPECT_THAT(folder.List(), ElementsAre("chain", "dangling", "data", "loop", "new", "pipe", "relative"));
}

}  // namespace
}  // namespace sarnevo::platform
