#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "platform/FileReplacement.h"
#include "platform/ProductVersion.h"
#include "support/TempFolder.h"
#include "support/VersionImage.h"

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

TEST(FileReplacement, KeepsOldContentUnderNamesOfItsOwn) {
  const TempFolder folder;
  const std::string longest(255, 'n');  // no room for ".bad"
  for (const char* content : {"", "1", "2", "3"}) {
    EXPECT_TRUE(ReplaceFile(folder / "f", content, OldContent::KeepAside));
  }
  EXPECT_TRUE(ReplaceFile(folder / longest, "1"));
  EXPECT_FALSE(ReplaceFile(folder / longest, "2", OldContent::KeepAside)) << "what can't be kept stays";
  EXPECT_EQ(folder.Read(longest), "1");
  EXPECT_THAT(folder.List(), ElementsAre("f", "f.bad", "f.bad.1", longest));
  EXPECT_EQ(folder.Read("f") + folder.Read("f.bad") + folder.Read("f.bad.1"), "312");
}

// What is malformed is in the corpus of the fuzz target.
TEST(VersionResource, IsFoundInBothFormsAndInNoneThatIsCutAnywhere) {
  for (const bool wide : {false, true}) {
    Image image(wide);
    const std::optional<Version> found = ReadVersionResource(image);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->major, kVersion.major);
    EXPECT_EQ(found->minor, kVersion.minor);
    EXPECT_EQ(found->build, kVersion.build);
    EXPECT_EQ(found->revision, kVersion.revision);
    for (std::size_t length = kSize; length-- > 0;) {
      image.Cut(length);
      EXPECT_FALSE(ReadVersionResource(image)) << wide << ' ' << length;
    }
  }
}

}  // namespace
}  // namespace sarnevo::platform
