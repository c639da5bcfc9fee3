#include "http/HttpTarget.h"

#include <algorithm>
#include <charconv>

#include "device/AsciiText.h"

namespace Web {

namespace {

// Longest name of the domain system, RFC 1035, 2.3.4.
constexpr std::size_t kMaxHostLength = 255;

constexpr std::string_view kHexDigits = "0123456789ABCDEF";
// Visible characters that RFC 3986 allows neither in a path nor in a query, and "#", which would end both.
constexpr std::string_view kUnsafe = "\"#<>\\^`{|}";

// Letters, digits and @p marks, of which there is at least one.
bool IsMadeOf(std::string_view text, std::string_view marks) noexcept {
  return !text.empty() && std::ranges::all_of(text, [marks](char c) {
    const char lower = sarnevo::LowerAscii(c);
    return (c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'z') || marks.find(c) != marks.npos;
  });
}

// Whether the byte would end the request line or its target.
bool BreaksLine(unsigned char c) noexcept { return c <= 0x20 || c == 0x7F; }

bool IsUnsafe(unsigned char c) noexcept {
  return BreaksLine(c) || c >= 0x80 || kUnsafe.find(static_cast<char>(c)) != std::string_view::npos;
}

// ":" and a port, whose digits may be missing.
std::optional<std::uint16_t> PortOf(std::string_view text) noexcept {
  text.remove_prefix(text.empty() ? 0 : 1);
  if (text.empty()) {
    return kHttpPort;
  }
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, port);
  return error == std::errc{} && stopped == end && port != 0 ? std::optional(port) : std::nullopt;
}

// RFC 3986, 5.2.2 to 5.2.4, for the dots that a relative path begins with. Further ones are the camera's own names.
std::string Merged(std::string_view path, std::string_view relative) {
  if (relative.starts_with('/')) {
    return std::string(relative);
  }
  std::string_view folder = path.substr(0, path.find('?'));
  if (relative.starts_with('?')) {
    return std::string(folder).append(relative);
  }
  folder = folder.substr(0, folder.rfind('/') + 1);
  while (relative.starts_with("./") || relative.starts_with("../")) {
    if (relative.starts_with("../") && folder.size() > 1) {
      folder = folder.substr(0, folder.rfind('/', folder.size() - 2) + 1);
    }
    relative.remove_prefix(relative.find('/') + 1);
  }
  return std::string(folder).append(relative);
}

}  // namespace

bool IsHttpHost(std::string_view host) noexcept {
  return host.size() <= kMaxHostLength && IsMadeOf(host, ".-_");
}

bool IsToken(std::string_view text) noexcept { return IsMadeOf(text, "!#$%&'*+-.^_`|~"); }

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
      target.append({'%', kHexDigits[byte >> 4], kHexDigits[byte & 0x0F]});
    } else {
      target += c;
    }
    inQuery = inQuery || c == '?';
  }
  return target;
}

std::optional<HttpTarget> TargetOfRedirect(const HttpTarget& target, std::string_view location) {
  location = location.substr(0, location.find('#'));  // no business of the server's (RFC 3986, 3.5)
  const std::size_t colon = location.find(':');
  if (colon < location.find_first_of("/?")) {
    if (!sarnevo::IsSameText(location.substr(0, colon), "http") ||
        !location.substr(colon + 1).starts_with("//")) {
      return std::nullopt;
    }
    location.remove_prefix(colon + 1);
  }
  if (location.starts_with("//")) {
    const std::string_view authority = location.substr(2, location.find_first_of("/?", 2) - 2);
    const std::size_t end = std::min(authority.find(':'), authority.size());
    const std::optional<std::uint16_t> named = PortOf(authority.substr(end));
    if (!named || !sarnevo::IsSameText(authority.substr(0, end), target.host)) {
      return std::nullopt;
    }
    location.remove_prefix(2 + authority.size());
    return HttpTarget{target.host, *named, RequestTarget(location, true)};
  }
  return HttpTarget{target.host, target.port, RequestTarget(Merged(target.path, location), true)};
}

}  // namespace Web
