#include "camera/CgiText.h"

#include <algorithm>

namespace sarnevo {

namespace {

std::string_view Trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlank = " \t";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == text.npos ? std::string_view{}
                            : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
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
    const std::size_t eq = text.substr(0, end + separator.size() - 1).find(separator, pos);
    if (eq < end && Trimmed(text.substr(start, eq - start)) == key) {
      const std::size_t value = eq + separator.size();
      if (value < text.size()) {
        return std::string(text.substr(value, std::max(end, value) - value));
      }
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
  const std::size_t pos = text.find(key);
  const std::size_t eq = pos == text.npos ? pos : text.find('=', pos);
  if (eq == text.npos) {
    return false;
  }
  const std::string_view rest = text.substr(eq + 1);
  const char ends[] = {stop, '\n', '\r', '\0'};
  const std::size_t length = std::min(rest.find_first_of(std::string_view(ends, sizeof(ends))), rest.size());
  const std::size_t count = std::min(length, out.size() - 1);
  std::copy_n(rest.begin(), count, out.begin());
  out[count] = '\0';
  return true;
}

std::string ToLowerText(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return lower;
}

std::string TrimText(std::string_view text) { return std::string(Trimmed(text)); }

std::string RemoveCharacters(std::string_view text, std::string_view set) {
  std::string rest(text);
  std::erase_if(rest, [set](char c) { return set.find(c) != set.npos; });
  return rest;
}

}  // namespace sarnevo
