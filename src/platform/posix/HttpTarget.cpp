#include "platform/posix/HttpTarget.h"

#include <algorithm>

#include "platform/HttpTransport.h"

namespace sarnevo::platform {

namespace {

// Longest name of the domain system, RFC 1035, 2.3.4.
constexpr std::size_t kMaxHostLength = 255;

constexpr std::string_view kTokenMarks = "!#$%&'*+-.^_`|~";
// Visible characters that RFC 3986 allows neither in a path nor in a query, and "#", which would end both.
constexpr std::string_view kUnsafe = "\"#<>\\^`{|}";

bool IsAlphanumeric(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Would end the request line or its target.
bool BreaksLine(unsigned char c) noexcept { return c <= 0x20 || c == 0x7F; }

bool IsUnsafe(unsigned char c) noexcept {
  return BreaksLine(c) || c >= 0x80 || kUnsafe.find(static_cast<char>(c)) != std::string_view::npos;
}

void AppendEscape(std::string& text, unsigned char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  text += '%';
  text += kDigits[c >> 4];
  text += kDigits[c & 0x0F];
}

}  // namespace

bool IsHttpHost(std::string_view host) noexcept {
  const auto fits = [](char c) { return IsAlphanumeric(c) || c == '.' || c == '-' || c == '_'; };
  return !host.empty() && host.size() <= kMaxHostLength && std::all_of(host.begin(), host.end(), fits);
}

namespace posix {

std::string RequestTarget(std::string_view path, bool escapeQuery) {
  std::string target;
  target.reserve(path.size() + 1);
  if (path.empty() || path.front() != '/') {
    target += '/';
  }
  bool inQuery = false;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (inQuery && !escapeQuery ? BreaksLine(byte) : IsUnsafe(byte)) {
      AppendEscape(target, byte);
    } else {
      target += c;
    }
    inQuery = inQuery || c == '?';
  }
  return target;
}

bool IsToken(std::string_view text) noexcept {
  const auto fits = [](char c) { return IsAlphanumeric(c) || kTokenMarks.find(c) != std::string_view::npos; };
  return !text.empty() && std::all_of(text.begin(), text.end(), fits);
}

}  // namespace posix

}  // namespace sarnevo::platform
