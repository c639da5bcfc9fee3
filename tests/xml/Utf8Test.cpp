#include "xml/Utf8.h"

#include <gtest/gtest.h>

namespace sarnevo {
namespace {

TEST(Utf8, IsReadStrictlyAndWrittenBack) {
  const struct {
    const char* name;
    std::string_view utf8;
    std::optional<std::wstring> wide;  // nothing: refused
    bool xml;
  } kTexts[] = {
      {"a letter of each length", "A\u00df\u20ac\U0001F3A5", L"A\u00df\u20ac\U0001F3A5", true},
      {"the ends of each length", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xF0\x90\x80\x80",
       L"\x7F\x80\u07FF\u0800\U00010000", true},
      {"around the surrogates", "\xED\x9F\xBF\xEE\x80\x80", L"\uD7FF\uE000", true},
      {"the last of all planes", "\xF4\x8F\xBF\xBF", L"\U0010FFFF", true},
      {"no character of XML's", "\xEF\xBF\xBE", L"\uFFFE", false},
      {"blanks", " \t\n\r", L" \t\n\r", true},
      {"zero", std::string_view("\0", 1), std::wstring(1, L'\0'), false},
      {"a continuation by itself", "\x80", {}, false},
      {"overlong, two bytes", "\xC1\xBF", {}, false},
      {"overlong, three bytes", "\xE0\x9F\xBF", {}, false},
      {"overlong, four bytes", "\xF0\x8F\xBF\xBF", {}, false},
      {"a surrogate", "\xED\xA0\x80", {}, false},
      {"behind all planes", "\xF4\x90\x80\x80", {}, false},
      {"cut", "\xF0\x9F\x8E", {}, false},
      {"cut by a blank", "\xE2\x82 ", {}, false},
  };
  for (const auto& text : kTexts) {
    SCOPED_TRACE(text.name);
    EXPECT_EQ(FromUtf8(text.utf8), text.wide);
    if (text.wide) {
      EXPECT_EQ(ToUtf8(*text.wide), text.utf8);
      EXPECT_EQ(IsXmlText(*text.wide), text.xml);
    }
  }
  const std::wstring lone{L'a', static_cast<wchar_t>(0xD800), L'b'};
  EXPECT_FALSE(IsXmlText(lone));
  EXPECT_EQ(ToUtf8(lone), "a\uFFFDb");
}

}  // namespace
}  // namespace sarnevo
