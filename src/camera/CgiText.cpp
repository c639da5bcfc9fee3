#include "camera/CgiText.h"

#include <algorithm>
#include <optional>

#include "device/AsciiText.h"

namespace sarnevo {

namespace {

struct Found {
  std::size_t separatorAt;
  std::string_view value;
};

// What comes after the first separator at or after @p pos, up to any of @p stops. Nothing without a separator.
std::optional<Found> ValueAfter(std::string_view text, std::size_t pos, std::string_view separator,
                                std::string_view stops) noexcept {
  const std::size_t at = text.find(separator, pos);
  if (at == text.npos) {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(at + separator.size());
  return Found{at, rest.substr(0, rest.find_first_of(stops))};
}

// The same after the first place of a key.
std::optional<Found> ValueOf(std::string_view text, std::string_view key, std::string_view separator,
                             std::string_view stops) noexcept {
  const std::size_t pos = text.find(key);
  return pos != text.npos ? ValueAfter(text, pos, separator, stops) : std::nullopt;
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
    const auto found = ValueAfter(text.substr(0, end + separator.size() - 1), pos, separator, terminators);
    if (found && Trimmed(text.substr(start, found->separatorAt - start)) == key &&
        found->separatorAt + separator.size() < text.size()) {
      return std::string(found->value);
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
  const std::string_view value = found->value.substr(0, out.size() - 1);
  *std::copy(value.begin(), value.end(), out.begin()) = '\0';
  return true;
}

std::string_view FindCgiValue(std::string_view text, std::string_view key,
                              std::string_view separator) noexcept {
  const auto found = ValueOf(text, key, separator, "<\n\r");
  return found ? found->value : std::string_view{};
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
