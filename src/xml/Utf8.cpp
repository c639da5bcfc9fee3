#include "xml/Utf8.h"

#include <cstdint>

namespace sarnevo {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kInvalid = 0xFFFFFFFF;
constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;

bool IsSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

// Takes one character off the front; kInvalid, with one byte taken, where there is none.
char32_t TakeUtf8(std::string_view& text) {
  const auto byteAt = [&text](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const std::uint8_t lead = byteAt(0);
  // By the lead byte: length, bits that it carries, smallest character that needs that length.
  std::size_t length = 1;
  char32_t character = lead;
  char32_t least = 0;
  if (lead >= 0xF0 && lead < 0xF8) {
    length = 4, character = lead & 0x07, least = 0x10000;
  } else if (lead >= 0xE0) {
    length = 3, character = lead & 0x0F, least = 0x800;
  } else if (lead >= 0xC0) {
    length = 2, character = lead & 0x1F, least = 0x80;
  }
  bool valid = lead < 0x80 || (lead >= 0xC0 && lead < 0xF8 && text.size() >= length);
  for (std::size_t i = 1; valid && i < length; ++i) {
    valid = (byteAt(i) & 0xC0) == 0x80;
    character = character << 6 | (byteAt(i) & 0x3F);
  }
  valid = valid && character >= least && character <= 0x10FFFF && !IsSurrogate(character);
  text.remove_prefix(valid ? length : 1);
  return valid ? character : kInvalid;
}

void AppendUtf8(std::string& text, char32_t character) {
  const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (character < 0x80) {
    append(character);
    return;
  }
  if (character < 0x800) {
    append(0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      append(0xE0 | character >> 12);
    } else {
      append(0xF0 | character >> 18);
      append(0x80 | (character >> 12 & 0x3F));
    }
    append(0x80 | (character >> 6 & 0x3F));
  }
  append(0x80 | (character & 0x3F));
}

// Takes one character off the front; kInvalid, with one unit taken, where there is none.
char32_t TakeWide(std::wstring_view& text) {
  const auto first = static_cast<char32_t>(text.front());
  text.remove_prefix(1);
  if (kWideIsUtf16 && first >= 0xD800 && first <= 0xDBFF && !text.empty()) {
    const auto second = static_cast<char32_t>(text.front());
    if (second >= 0xDC00 && second <= 0xDFFF) {
      text.remove_prefix(1);
      return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
    }
  }
  return first > 0x10FFFF || IsSurrogate(first) ? kInvalid : first;
}

void AppendWide(std::wstring& text, char32_t character) {
  if (kWideIsUtf16 && character >= 0x10000) {
    text.push_back(static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10)));
    text.push_back(static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
  } else {
    text.push_back(static_cast<wchar_t>(character));
  }
}

}  // namespace

std::optional<std::wstring> FromUtf8(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = TakeUtf8(text);
    if (character == kInvalid) {
      return std::nullopt;
    }
    AppendWide(wide, character);
  }
  return wide;
}

std::string ToUtf8(std::wstring_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  while (!text.empty()) {
    const char32_t character = TakeWide(text);
    AppendUtf8(utf8, character == kInvalid ? kReplacement : character);
  }
  return utf8;
}

bool IsXmlText(std::wstring_view text) {
  while (!text.empty()) {
    const char32_t character = TakeWide(text);
    const bool blank = character == '\t' || character == '\n' || character == '\r';
    if (character == kInvalid || (character < 0x20 && !blank) || character == 0xFFFE || character == 0xFFFF) {
      return false;
    }
  }
  return true;
}

}  // namespace sarnevo
