#include "platform/VersionResource.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/VersionImage.h"

namespace sarnevo::platform {
namespace {

TEST(VersionResource, ToleratesWhatIsHarmlessAndRefusesWhatIsMalformedOrCutAnywhere) {
  constexpr std::uint32_t kMax = 0xFFFF'FFFF;
  struct {
    const char* name;
    bool found;
    std::function<void(Image&)> change;
  } const cases[] = {
      {"as it is", true, [](Image&) {}},
      {"no MZ", false, [](Image& i) { i.Put16(0, 0x4D5A); }},
      {"unknown optional header", false, [](Image& i) { i.Put16(kOptional, 0x107); }},
      {"optional header too short for the directory", false, [](Image& i) { i.Put16(kPe + 20, 0x60); }},
      {"section too short for the data", false, [](Image& i) { i.Put32(i.Sections() + 56, kSize - kRaw - 1); }},
      {"no version type", false, [](Image& i) { i.Put32(kTypes + 24, 17); }},
      {"type among the names", true, [](Image& i) { i.Put16(kTypes + 12, 1).Put16(kTypes + 14, 1); }},
      {"more entries than the section holds, ours nowhere", false,
       [](Image& i) { i.Put32(kTypes + 12, kMax).Put32(kTypes + 24, 17); }},
      {"language leads past the section", false, [](Image& i) { i.Put32(kLanguages + 20, kSize - kRaw - 15); }},
      {"data below the section", false, [](Image& i) { i.Put32(kData, kAddress - 1); }},
      {"data larger than its section", false, [](Image& i) { i.Put32(kData + 4, 93); }},
      {"data too short", false, [](Image& i) { i.Put32(kData + 4, 91); }},
      {"length too short", false, [](Image& i) { i.Put16(kInfo, 91); }},
      {"length past the data", false, [](Image& i) { i.Put16(kInfo, 93); }},
      {"other key", false, [](Image& i) { i.Put16(kInfo + 6, 'v'); }},
      {"no signature", false, [](Image& i) { i.Put32(kFixed, 0); }},
  };
  for (const bool wide : {false, true}) {
    for (const auto& c : cases) {
      Image image(wide);
      c.change(image);
      const auto found = ReadVersionResource(image);
      EXPECT_EQ(found.has_value(), c.found) << c.name << (wide ? ", PE32+" : ", PE32");
      EXPECT_TRUE(!found || (found->major == kVersion.major && found->minor == kVersion.minor &&
                             found->build == kVersion.build && found->revision == kVersion.revision));
    }
    Image image(wide);
    for (std::size_t length = kSize; length-- > 0;) {
      image.Cut(length);
      EXPECT_FALSE(ReadVersionResource(image)) << wide << ' ' << length;
    }
  }
}

}  // namespace
}  // namespace sarnevo::platform
