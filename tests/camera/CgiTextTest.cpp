#include "camera/CgiText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "camera/CCameraProperties.h"

namespace sarnevo {
namespace {

TEST(CgiText, ATokenCountsOnlyWithItsSeparator) {
  const std::string stops = "\r\n &";
  struct Case {
    const char* name;
    std::string text;
    const char* key;
    std::string separator;
    std::string terminators;
    const char* value;
  };
  const Case cases[] = {
      {"the first value of a line", "ret=200&method=get", "ret", "=", stops, "200"},
      {"the last value of a text", "ret=200&method=get", "method", "=", stops, "get"},
      {"each terminator ends it", "a=1\rb=2\nc=3 d=4&e=5", "c", "=", stops, "3"},
      {"a blank in front of the separator is a terminator", "ret =200", "ret", "=", stops, ""},
      {"unless it isn't", "ret \t=200\n", "ret", "=", "\n", "200"},
      {"a key that ends a longer word", "myret=7", "ret", "=", stops, "7"},
      {"a key that begins a longer word", "retry=7&ret=8", "ret", "=", stops, "8"},
      {"a key that stands first without a value", "ret&ret=9", "ret", "=", stops, "9"},
      {"a value that holds the separator", "a=b=c", "a", "=", stops, "b=c"},
      {"an empty value", "a=&b=1", "a", "=", stops, ""},
      {"nothing behind the separator", "b=1&a=", "a", "=", stops, ""},
      {"no such key", "a=1", "b", "=", stops, ""},
      {"a long separator", "a=>1&b", "a", "=>", stops, "1"},
      {"no key", "a=1", "", "=", stops, ""},
      {"no separator", "a=1", "a", "", stops, ""},
      {"no terminators", "a=1", "a", "=", "", ""},
      {"a key that begins with a terminator", "&a&a&a=1", "&a", "=", stops, ""},
      {"zero bytes are bytes", std::string("a\0=1&a=2", 8), "a", "=", stops, "2"},
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
      {"which alone stops", "key=a<b&c", '&', 1024, true, "a<b"},
      {"up to LF", "key=abc\ndef", '&', 1024, true, "abc"},
      {"up to CR", "key=abc\r\ndef", '&', 1024, true, "abc"},
      {"up to the end", "key=abc", '&', 1024, true, "abc"},
      {"an empty value at a line's end", "key=\r\nx=1", '&', 1024, true, ""},
      {"an empty value at the text's end", "key=", '&', 1024, true, ""},
      {"the separator of another key", "key&\r\nother=5&", '&', 1024, true, "5"},
      {"inside a longer word", "monkeys=3&", '&', 1024, true, "3"},
      {"only the first occurrence", "key1=1&key=2", '&', 1024, true, "1"},
      {"no separator", "=key", '&', 1024, false, ""},
      {"no key", "kez=1", '&', 1024, false, ""},
      {"an empty text", "", '&', 1024, false, ""},
      {"as much as fits with the zero", "key=" + longValue, '&', 1024, true, longValue.substr(0, 1023)},
      {"one more than fits", "key=" + longValue.substr(0, 1024) + "&", '&', 1024, true,
       longValue.substr(0, 1023)},
      {"room for the zero only", "key=abc", '&', 1, true, ""},
      {"no room", "key=abc", '&', 0, false, ""},
  };
  for (const Case& c : cases) {
    std::vector<char> out(c.size, '?');  // of the exact size, so that the sanitizer sees a byte too many
    EXPECT_EQ(ExtractCgiValue(c.text, "key", out, c.stop), c.found) << c.name;
    if (c.size > 0) {
      EXPECT_EQ(std::string(out.data()), c.value) << c.name;
    }
  }
}

TEST(CgiText, LooksThroughAHostileReplyInNoTime) {
  std::string keys;
  while (keys.size() < 1'000'000) {
    keys += "ret&";
  }
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(GetCgiValue(keys, "ret", "=", "\r\n &"), "");
  EXPECT_EQ(GetCgiValue(std::string(1'000'000, 'r'), "rr", "=", "\r\n &"), "");
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
}

TEST(CgiText, ChangesOnlyWhatItSays) {
  EXPECT_EQ(ToLowerText("ServerTime=\xC4Z@[`{"), "servertime=\xC4z@[`{");
  EXPECT_EQ(TrimText(" \t a b\r\n\t "), "a b\r\n");
  EXPECT_EQ(TrimText(" \t"), "");
  EXPECT_EQ(RemoveCharacters("00:11:22:aa:bb:cc", ":"), "001122aabbcc");
  EXPECT_EQ(RemoveCharacters("a-b:c", ":-"), "abc");
  EXPECT_EQ(RemoveCharacters("abc", ""), "abc");
}

std::string Intervals(CResolutionInfo info) {
  std::string text;
  for (u32 interval = info.GetFirstFrameInterval(); interval != 0; interval = info.GetNextFrameInterval()) {
    text += std::to_string(interval) + " ";
  }
  return text;
}

TEST(CameraProperties, KeepWhatIsAddedInOrder) {
  CResolutionInfo pal;
  pal.FillFrameIntervals(40, 0);
  EXPECT_EQ(Intervals(pal), "1000 500 333 250 200 166 125 83 40 ");
  EXPECT_EQ(pal.GetMinFrameInterval(), 40u);
  CResolutionInfo ntsc;
  ntsc.FillFrameIntervals(33, 1);
  EXPECT_EQ(Intervals(ntsc), "1000 500 333 250 200 166 142 100 66 33 ");

  CCameraProperties properties;
  for (const auto& [width, height] : {std::pair<u16, u16>{352, 288}, {352, 240}, {352, 288}, {0, 0}, {0, 0}}) {
    CResolutionInfo info;
    info.SetSize(width, height);
    properties.AddResolution(info);
  }
  for (int round = 0; round < 2; ++round) {
    std::string sizes;
    for (const auto* info = properties.GetFirstResolution(); info != nullptr;
         info = properties.GetNextResolution()) {
      sizes += std::to_string(info->GetWidth()) + "x" + std::to_string(info->GetHeight()) + " ";
    }
    EXPECT_EQ(sizes, "352x288 352x240 0x0 0x0 ");
  }
}

}  // namespace
}  // namespace sarnevo
