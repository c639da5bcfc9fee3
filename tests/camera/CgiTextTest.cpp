#include "camera/CgiText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camera/CCameraProperties.h"

namespace sarnevo {
namespace {

TEST(CgiText, ATokenCountsOnlyWithItsSeparator) {
  const std::string stops = "\r\n &";
  std::string hostile;
  while (hostile.size() < 1'000'000) {
    hostile += "ret&";
  }
  struct Case {
    const char* name;
    std::string text;
    const char* key;
    std::string separator;
    std::string terminators;
    const char* value;
  };
  const Case cases[] = {
      {"each terminator ends it", "a=1\rb=2\nc=3 d=4&e=5", "c", "=", stops, "3"},
      {"a blank in front of the separator is a terminator", "ret =200", "ret", "=", stops, ""},
      {"a key that begins a longer word", "retry=7&ret=8", "ret", "=", stops, "8"},
      {"nothing behind the separator", "b=1&a=", "a", "=", stops, ""},
      {"a key that begins with a terminator", "&a&a&a=1", "&a", "=", stops, ""},
      {"zero bytes are bytes", std::string("a\0=1&a=2", 8), "a", "=", stops, "2"},
      {"a hostile reply, in time", hostile, "ret", "=", stops, ""},
      {"another", std::string(1'000'000, 'r'), "rr", "=", stops, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(GetCgiValue(c.text, c.key, c.separator, c.terminators), c.value) << c.name;
  }
}

TEST(CgiText, ASubstringTakesTheNextSeparatorAnywhere) {
  struct Case {
    const char* name;
    std::string text;
    char stop;
    std::size_t size;
    bool found;
    std::string value;
  };
  const std::string longValue(5000, 'v');
  const Case cases[] = {
      {"up to the stop character", "x=1&key=abc&y=2", '&', 1024, true, "abc"},
      {"up to LF", "key=abc\ndef", '&', 1024, true, "abc"},
      {"an empty value at the text's end", "key=", '&', 1024, true, ""},
      {"the separator of another key", "key&\r\nother=5&", '&', 1024, true, "5"},
      {"only the first occurrence", "key1=1&key=2", '&', 1024, true, "1"},
      {"no separator", "=key", '&', 1024, false, ""},
      {"one more than fits", "key=" + longValue.substr(0, 1024) + "&", '&', 1024, true,
       longValue.substr(0, 1023)},
      {"room for the zero only", "key=abc", '&', 1, true, ""},
  };
  for (const Case& c : cases) {
    std::vector<char> out(c.size, '?');  // of the exact size, so that the sanitizer sees a byte too many
    EXPECT_EQ(ExtractCgiValue(c.text, "key", out, c.stop), c.found) << c.name;
    EXPECT_EQ(std::string(out.data()), c.value) << c.name;
  }
}

TEST(CameraProperties, OfferTheFrameIntervalsOfTheStandard) {
  for (const u8 standard : {u8{0}, u8{1}}) {
    CResolutionInfo info;
    info.FillFrameIntervals(standard == 0 ? 40 : 33, standard);
    std::string text;
    for (u32 interval = info.GetFirstFrameInterval(); interval != 0; interval = info.GetNextFrameInterval()) {
      text += std::to_string(interval) + " ";
    }
    EXPECT_EQ(text, standard == 0 ? "1000 500 333 250 200 166 125 83 40 "
                                  : "1000 500 333 250 200 166 142 100 66 33 ");
  }
}

}  // namespace
}  // namespace sarnevo
