#include "xml/Utf8.h"

#include <cstdint>
#include <iterator>

#include <utf8.h>

namespace sarnevo {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;

// Takes one character off the front; the replacement, with one unit taken, where there is none.
std::uint32_t TakeWide(std::wstring_view& text) {
  const auto first = static_cast<std::uint32_t>(text.front());
  text.remove_prefix(1);
  if (kWideIsUtf16 && first >= 0xD800 && first <= 0xDBFF && !text.empty()) {
    const auto second = static_cast<std::uint32_t>(text.front());
    if (second >= 0xDC00 && second <= 0xDFFF) {
      text.remove_prefix(1);
      return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
    }
  }
  return first > 0x10FFFF || (first >= 0xD800 && first <= 0xDFFF) ? kReplacement : first;
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
  while (!text.empty()) {
    utf8::unchecked::append(TakeWide(text), std::back_inserter(utf8));
  }
  return utf8;
}

}  // namespace sarnevo
