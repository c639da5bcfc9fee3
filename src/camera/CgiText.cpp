#include "camera/CgiText.h"

#include <algorithm>
#include <optional>

#include "device/AsciiText.h"

namespace sarnevo {

namespace {

// What is in front of any of @p stops.
std::string_view UpTo(std::string_view text, std::string_view stops) noexcept {
  return text.substr(0, text.find_first_of(stops));
}

// What comes after the first separator that follows the first place of a key. Nothing without one of them.
std::optional<std::string_view> ValueOf(std::string_view text, std::string_view key, std::string_view separator,
                                        std::string_view stops) noexcept {
  const std::size_t pos = text.find(key);
  const std::size_t at = pos != text.npos ? text.find(separator, pos) : pos;
  return at != text.npos ? std::optional(UpTo(text.substr(at + separator.size()), stops)) : std::nullopt;
}

}  // namespace

std::string GetCgiValue(std::string_view text, std::string_view key, std::string_view separator,
                        std::string_view terminators) {
  if (key.empty() || separator.empty() || terminators.empty()) {
    return {};
  }
  std::size_t pos = text.find(key);
  while (pos != text.npos) {
    const std::size_t lastInside = text.find_last_not_of(terminators, pos);
    const std::size_t start = lastInside == text.npos ? 0 : lastInside;
    const std::size_t end = std::min(text.find_first_of(terminators, pos), text.size());
    // The separator has to begin before the end, so it is looked for no further: a reply full of keys would
    // be searched through for each of them otherwise.
    const std::string_view part = text.substr(0, end + separator.size() - 1);
    const std::size_t at = part.find(separator, pos);
    if (at != part.npos && Trimmed(text.substr(start, at - start)) == key &&
        at + separator.size() < text.size()) {
      return std::string(UpTo(part.substr(at + separator.size()), terminators));
    }
    // A key that begins with a terminator ends where it begins.
    pos = text.find(key, std::max(end, pos + 1));
  }
  return {};
}

bool ExtractCgiValue(std::string_view text, std::string_view key, std::span<char> out, char stop) {
  if (out.empty()) {
    return false;
  }
  out.front() = '\0';
  const char stops[] = {stop, '\n', '\r', '\0'};
  const auto found = ValueOf(text, key, "=", {stops, sizeof(stops)});
  if (!found) {
    return false;
  }
  const std::string_view value = found->substr(0, out.size() - 1);
  *std::copy(value.begin(), value.end(), out.begin()) = '\0';
  return true;
}

std::string_view FindCgiValue(std::string_view text, std::string_view key,
                              std::string_view separator) noexcept {
  return ValueOf(text, key, separator, "<\n\r").value_or("");
}

std::string ToLowerText(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), &LowerAscii);
  return lower;
}

std::string TrimText(std::string_view text) { return std::string(Trimmed(text)); }

std::string RemoveCharacters(std::string_view text, std::string_view set) {
  std::string rest(text);
  std::erase_if(rest, [set](char c) { return set.find(c) != set.npos; });
  return rest;
}

}  // namespace sarnevo
