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

namespace sarnevo::platform {
namespace {

constexpr Version kVersion{5, 11, 300, 40'000};

// A library file with nothing in it but headers, two sections and one version resource. Where the parts
// lie in it:
constexpr std::size_t kPe = 0x40;
constexpr std::size_t kOptional = kPe + 24;
constexpr std::size_t kRaw = 0x200;  // the resource section
constexpr std::size_t kTypes = kRaw;
constexpr std::size_t kNames = kRaw + 32;
constexpr std::size_t kLanguages = kRaw + 56;
constexpr std::size_t kData = kRaw + 80;
constexpr std::size_t kInfo = kRaw + 96;
constexpr std::size_t kFixed = kInfo + 40;
constexpr std::size_t kSize = kInfo + 92;
constexpr std::uint32_t kAddress = 0x3000;  // of the resource section
constexpr std::uint32_t kDirectory = 0x8000'0000u;

class Image : public ByteSource {
 public:
  explicit Image(bool wide) : wide_(wide), bytes_(kSize) {
    Put16(0, 0x5A4D).Put32(0x3C, kPe);
    Put32(kPe, 0x4550).Put16(kPe + 6, 2).Put16(kPe + 20, OptionalBytes());
    Put16(kOptional, wide ? 0x20B : 0x10B).Put32(Directories() - 4, 16).Put32(Directories() + 16, kAddress);
    const std::size_t sections = Sections();
    Put32(sections + 12, 0x1000).Put32(sections + 16, 0x200).Put32(sections + 20, 0x40);
    Put32(sections + 52, kAddress).Put32(sections + 56, kSize - kRaw).Put32(sections + 60, kRaw);
    Put16(kTypes + 14, 2).Put32(kTypes + 16, 3).Put32(kTypes + 24, 16).Put32(kTypes + 28, kDirectory | 32);
    Put16(kNames + 14, 1).Put32(kNames + 16, 1).Put32(kNames + 20, kDirectory | 56);
    Put16(kLanguages + 14, 1).Put32(kLanguages + 16, 0x409).Put32(kLanguages + 20, 80);
    Put32(kData, kAddress + 96).Put32(kData + 4, 92);
    Put16(kInfo, 92).Put16(kInfo + 2, 52);
    for (std::size_t i = 0; i < 15; ++i) {
      Put16(kInfo + 6 + 2 * i, "VS_VERSION_INFO"[i]);
    }
    Put32(kFixed, 0xFEEF'04BD).Put32(kFixed + 8, 0x0001'0002).Put32(kFixed + 12, 0x0003'0004);
    Put16(kFixed + 18, kVersion.major).Put16(kFixed + 16, kVersion.minor);
    Put16(kFixed + 22, kVersion.build).Put16(kFixed + 20, kVersion.revision);
  }

  bool IsWide() const { return wide_; }
  std::uint16_t OptionalBytes() const { return wide_ ? 240 : 224; }
  std::size_t Directories() const { return kOptional + (wide_ ? 112 : 96); }
  std::size_t Sections() const { return kOptional + OptionalBytes(); }
  const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
  void Cut(std::size_t length) { bytes_.resize(length); }

  Image& Put16(std::size_t at, std::uint32_t value) {
    bytes_.at(at) = static_cast<std::uint8_t>(value);
    bytes_.at(at + 1) = static_cast<std::uint8_t>(value >> 8);
    return *this;
  }
  Image& Put32(std::size_t at, std::uint32_t value) { return Put16(at, value).Put16(at + 2, value >> 16); }

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    if (offset > bytes_.size() || bytes_.size() - offset < into.size()) {
      return false;
    }
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), into.size(), into.begin());
    return true;
  }

 private:
  bool wide_;
  std::vector<std::uint8_t> bytes_;
};

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
      {"unknown optional header", false, [](Image& i) { i.Put16(kOptional, 0x107); }},
      {"optional header too short for the directory", false, [](Image& i) { i.Put16(kPe + 20, 0x60); }},
      {"no third directory", false, [](Image& i) { i.Put32(i.Directories() - 4, 2); }},
      {"no resources", false, [](Image& i) { i.Put32(i.Directories() + 16, 0); }},
      {"resources in no section", false, [](Image& i) { i.Put32(i.Directories() + 16, kMax); }},
      {"no sections", false, [](Image& i) { i.Put16(kPe + 6, 0); }},
      {"one section only", false, [](Image& i) { i.Put16(kPe + 6, 1); }},
      {"more sections than the file holds", true, [](Image& i) { i.Put16(kPe + 6, 0xFFFF); }},
      {"section data past the end", false, [](Image& i) { i.Put32(i.Sections() + 60, kMax); }},
      {"section larger than the file", true, [](Image& i) { i.Put32(i.Sections() + 56, kMax - kAddress); }},
      {"section too short for the data", false, [](Image& i) { i.Put32(i.Sections() + 56, kSize - kRaw - 1); }},
      {"no version type", false, [](Image& i) { i.Put32(kTypes + 24, 17); }},
      {"type among the names", true, [](Image& i) { i.Put16(kTypes + 12, 1).Put16(kTypes + 14, 1); }},
      {"more entries than the section holds, ours first", true, [](Image& i) { i.Put32(kTypes + 12, kMax); }},
      {"more entries than the section holds, ours nowhere", false,
       [](Image& i) { i.Put32(kTypes + 12, kMax).Put32(kTypes + 24, 17); }},
      {"type leads to data", false, [](Image& i) { i.Put32(kTypes + 28, 80); }},
      {"type leads to itself", false,
       [](Image& i) { i.Put32(kTypes + 28, kDirectory).Put32(kTypes + 24, 16); }},
      {"type leads past the section", false, [](Image& i) { i.Put32(kTypes + 28, kMax); }},
      {"name 2", false, [](Image& i) { i.Put32(kNames + 16, 2); }},
      {"name leads to itself", false, [](Image& i) { i.Put32(kNames + 20, kDirectory | 32); }},
      {"language leads to a directory", false, [](Image& i) { i.Put32(kLanguages + 20, kDirectory | 56); }},
      {"language leads past the section", false, [](Image& i) { i.Put32(kLanguages + 20, kSize - kRaw - 15); }},
      {"no language", false, [](Image& i) { i.Put16(kLanguages + 14, 0); }},
      {"data in no section", false, [](Image& i) { i.Put32(kData, 0x2000); }},
      {"data below the section", false, [](Image& i) { i.Put32(kData, kAddress - 1); }},
      {"data larger than its section", false, [](Image& i) { i.Put32(kData + 4, 93); }},
      {"data of 4 GB", false, [](Image& i) { i.Put32(kData + 4, kMax); }},
      {"data too short", false, [](Image& i) { i.Put32(kData + 4, 91); }},
      {"length too short", false, [](Image& i) { i.Put16(kInfo, 91); }},
      {"length past the data", false, [](Image& i) { i.Put16(kInfo, 93); }},
      {"value too short", false, [](Image& i) { i.Put16(kInfo + 2, 51); }},
      {"other key", false, [](Image& i) { i.Put16(kInfo + 6, 'v'); }},
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
