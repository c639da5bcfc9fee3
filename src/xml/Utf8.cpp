#include "xml/Utf8.h"

#include <iterator>

#include <utf8.h>

namespace sarnevo {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;

constexpr bool IsIn(char32_t character, char32_t first, char32_t last) noexcept {
  return character >= first && character <= last;
}

}  // namespace

std::optional<std::wstring> FromUtf8(std::string_view text) {
  if (!utf8::is_valid(text.begin(), text.end())) {
    return std::nullopt;
  }
  std::wstring wide;
  wide.reserve(text.size());
  if constexpr (kWideIsUtf16) {
    utf8::unchecked::utf8to16(text.begin(), text.end(), std::back_inserter(wide));
  } else {
    utf8::unchecked::utf8to32(text.begin(), text.end(), std::back_inserter(wide));
  }
  return wide;
}

std::string ToUtf8(std::wstring_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto character = static_cast<char32_t>(text[i]);
    if (kWideIsUtf16 && IsIn(character, 0xD800, 0xDBFF) && i + 1 < text.size() &&
        IsIn(static_cast<char32_t>(text[i + 1]), 0xDC00, 0xDFFF)) {
      character = 0x10000 + ((character - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    }
    const bool valid = character <= 0x10FFFF && !IsIn(character, 0xD800, 0xDFFF);
    utf8::unchecked::append(valid ? character : kReplacement, std::back_inserter(utf8));
  }
  return utf8;
}

bool IsXmlText(std::string_view text) noexcept {
  if (!utf8::is_valid(text.begin(), text.end())) {
    return false;
  }
  for (auto at = text.begin(); at != text.end();) {
    const char32_t character = utf8::unchecked::next(at);
    const bool blank = character == '\t' || character == '\n' || character == '\r';
    if ((character < 0x20 && !blank) || character == 0xFFFE || character == 0xFFFF) {
      return false;
    }
  }
  return true;
}

}  // namespace sarnevo
