#include "web/Http.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include <nlohmann/json.hpp>

namespace kolvex_console {

namespace {

/// RFC 3986, section 2.1.
bool Decode(std::string_view text, std::string& into) {
  into.clear();
  for (std::size_t at = 0; at < text.size(); ++at) {
    char character = text[at];
    if (character == '%') {
      unsigned char code = 0;
      const char* const digits = text.data() + at + 1;
      if (text.size() - at < 3 || std::from_chars(digits, digits + 2, code, 16).ptr != digits + 2) {
        return false;
      }
      character = static_cast<char>(code);
      at += 2;
    }
    // A name with a line break or a zero byte is nobody's name, and would be one more way into a header.
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7f) {
      return false;
    }
    into += character;
  }
  return true;
}

/// The part of @p text before @p mark; @p text goes on after it.
std::string_view Cut(std::string_view& text, char mark) {
  const std::size_t end = std::min(text.find(mark), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

}  // namespace

Reply JsonReply(const nlohmann::json& value, unsigned status) {
  // What isn't UTF-8, in a name that a camera or a file gave, is replaced and never a failure.
  return {status,
          "application/json",
          value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
          {}};
}

Reply Refusal(unsigned status, const std::string& sentence) { return JsonReply({{"error", sentence}}, status); }

bool IsJson(std::string_view contentType) {
  std::string_view type = contentType.substr(0, contentType.find(';'));
  type = type.substr(0, type.find_last_not_of(" \t") + 1);
  constexpr std::string_view kJson = "application/json";
  return std::equal(type.begin(), type.end(), kJson.begin(), kJson.end(),
                    [](unsigned char given, char expected) { return std::tolower(given) == expected; });
}

bool ParseTarget(std::string_view target, Request& into) {
  std::string_view path = Cut(target, '?');
  if (path.empty() || path[0] != '/') {
    return false;
  }
  path.remove_prefix(1);
  // The slash separates before it is decoded, so that a name may hold one as %2F.
  while (!path.empty()) {
    if (!Decode(Cut(path, '/'), into.path.emplace_back())) {
      return false;
    }
  }
  while (!target.empty()) {
    std::string_view pair = Cut(target, '&');
    std::string name;
    std::string value;
    if (!Decode(Cut(pair, '='), name) || !Decode(pair, value)) {
      return false;
    }
    into.query[name] = value;
  }
  return true;
}

}  // namespace kolvex_console
