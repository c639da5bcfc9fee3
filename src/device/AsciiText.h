#pragma once

#include <algorithm>
#include <string_view>

/// Letters and blanks of protocols, which are those of ASCII whatever the host's locale says. Pure; nothing throws.
namespace sarnevo {

constexpr char LowerAscii(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool IsSameText(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char one, char other) { return LowerAscii(one) == LowerAscii(other); });
}

/// Without blanks and tabs at either end.
constexpr std::string_view Trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlank = " \t";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == text.npos ? std::string_view{}
                            : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

}  // namespace sarnevo
