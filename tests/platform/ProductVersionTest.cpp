#include "platform/ProductVersion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/HostProcess.h"
#include "platform/VersionResource.h"
#include "support/VersionImage.h"

namespace sarnevo::platform {
namespace {

void ExpectVersion(const std::optional<Version>& found) {
  ASSERT_TRUE(found);
  EXPECT_EQ(found->major, kVersion.major);
  EXPECT_EQ(found->minor, kVersion.minor);
  EXPECT_EQ(found->build, kVersion.build);
  EXPECT_EQ(found->revision, kVersion.revision);
}

TEST(VersionResource, IsFoundInBothFormsAndInNoneThatIsCutAnywhere) {
  for (const bool wide : {false, true}) {
    Image image(wide);
    ExpectVersion(ReadVersionResource(image));
    for (std::size_t length = kSize; length-- > 0;) {
      image.Cut(length);
      EXPECT_FALSE(ReadVersionResource(image)) << wide << ' ' << length;
    }
  }
}

TEST(VersionResource, ToleratesWhatIsHarmlessAndRefusesWhatIsMalformed) {
  constexpr std::uint32_t kMax = 0xFFFF'FFFF;
  struct {
    const char* name;
    bool found;
    std::function<void(Image&)> change;
  } const cases[] = {
      {"no MZ", false, [](Image& i) { i.Put16(0, 0x4D5A); }},
      {"headers past the end", false, [](Image& i) { i.Put32(0x3C, kSize - 10); }},
      {"headers at the last address", false, [](Image& i) { i.Put32(0x3C, kMax); }},
      {"no PE signature", false, [](Image& i) { i.Put32(kPe, 0x454E); }},
      {"optional header too short for the directory", false, [](Image& i) { i.Put16(kPe + 20, 0x60); }},
      {"no third directory", false, [](Image& i) { i.Put32(i.Directories() - 4, 2); }},
      {"resources in no section", false, [](Image& i) { i.Put32(i.Directories() + 16, kMax); }},
      {"one section only", false, [](Image& i) { i.Put16(kPe + 6, 1); }},
      {"more sections than the file holds", true, [](Image& i) { i.Put16(kPe + 6, 0xFFFF); }},
      {"section data past the end", false, [](Image& i) { i.Put32(i.Sections() + 60, kMax); }},
      {"section larger than the file", true, [](Image& i) { i.Put32(i.Sections() + 56, kMax - kAddress); }},
      {"section too short for the data", false, [](Image& i) { i.Put32(i.Sections() + 56, kSize - kRaw - 1); }},
      {"type among the names", true, [](Image& i) { i.Put16(kTypes + 12, 1).Put16(kTypes + 14, 1); }},
      {"more entries than the section holds, ours first", true, [](Image& i) { i.Put32(kTypes + 12, kMax); }},
      {"more entries than the section holds, ours nowhere", false,
       [](Image& i) { i.Put32(kTypes + 12, kMax).Put32(kTypes + 24, 17); }},
      {"type leads to data", false, [](Image& i) { i.Put32(kTypes + 28, 80); }},
      {"type leads to itself", false,
       [](Image& i) { i.Put32(kTypes + 28, kDirectory).Put32(kTypes + 24, 16); }},
      {"name leads to itself", false, [](Image& i) { i.Put32(kNames + 20, kDirectory | 32); }},
      {"language leads to a directory", false, [](Image& i) { i.Put32(kLanguages + 20, kDirectory | 56); }},
      {"language leads past the section", false, [](Image& i) { i.Put32(kLanguages + 20, kSize - kRaw - 15); }},
      {"data below the section", false, [](Image& i) { i.Put32(kData, kAddress - 1); }},
      {"data larger than its section", false, [](Image& i) { i.Put32(kData + 4, 93); }},
      {"data too short", false, [](Image& i) { i.Put32(kData + 4, 91); }},
      {"length past the data", false, [](Image& i) { i.Put16(kInfo, 93); }},
      {"value too short", false, [](Image& i) { i.Put16(kInfo + 2, 51); }},
      {"key goes on", false, [](Image& i) { i.Put16(kInfo + 36, '2'); }},
      {"no signature", false, [](Image& i) { i.Put32(kFixed, 0); }},
  };
  for (const auto& c : cases) {
    for (const bool wide : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (wide ? ", PE32+" : ", PE32"));
      Image image(wide);
      c.change(image);
      if (c.found) {
        ExpectVersion(ReadVersionResource(image));
      } else {
        EXPECT_FALSE(ReadVersionResource(image));
      }
    }
  }
}

TEST(ProductVersion, IsThatOfTheFileBesideTheHostsExecutable) {
  const std::string name = "version-test-" + std::to_string(getpid()) + ".dll";
  const std::string path = HostExecutableFolder().value() + "/" + name;
  EXPECT_FALSE(ReadProductVersion(name));
  const Image image(true);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(image.Bytes().data()),
             static_cast<std::streamsize>(image.Bytes().size()));
  ExpectVersion(ReadProductVersion(name));
  std::filesystem::resize_file(path, kSize - 1);
  EXPECT_FALSE(ReadProductVersion(name));
  std::filesystem::remove(path);
  // Opening a pipe would wait for a writer, and a folder has no bytes.
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(ReadProductVersion(name));
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_FALSE(ReadProductVersion(name));
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace sarnevo::platform
