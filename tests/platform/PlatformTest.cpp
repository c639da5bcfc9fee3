#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/FileReplacement.h"
#include "platform/ProductVersion.h"
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

struct Image : ByteSource {
  explicit Image(const char* name) {
    std::ifstream file(KOLVEX_VERSIONS + std::string(name), std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
  }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    const bool has = offset <= bytes.size() && into.size() <= bytes.size() - offset;
    std::copy_n(bytes.data() + (has ? offset : 0), has ? into.size() : 0, into.begin());
    return has;
  }
  std::string bytes;
};

// What is malformed is in the corpus of the fuzz target too.
TEST(VersionResource, IsFoundInBothFormsAndInNoneThatIsCutAnywhere) {
  for (const char* const form : {"/pe32", "/pe32-plus"}) {
    Image image(form);
    const std::optional<Version> found = ReadVersionResource(image);
    ASSERT_TRUE(found);
    EXPECT_THAT((std::array{found->major, found->minor, found->build, found->revision}),
                ElementsAre(5, 11, 300, 40'000));
    while (!image.bytes.empty()) {
      image.bytes.pop_back();
      EXPECT_FALSE(ReadVersionResource(image)) << form << ' ' << image.bytes.size();
    }
  }
}

}  // namespace
}  // namespace sarnevo::platform
