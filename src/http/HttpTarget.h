#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Web {

/// Where a request goes.
struct HttpTarget {
  std::string host;        ///< dotted IPv4 address or name
  std::uint16_t port = 0;  ///< never 0
  std::string path;        ///< with its query, as it goes out
};

constexpr std::uint16_t kHttpPort = 80;

/// Whether @p host may be in a request: an IPv4 address or a host name, nothing with a port, a path or
/// credentials in it.
bool IsHttpHost(std::string_view host) noexcept;

/// A token of RFC 9110, 5.6.2.
bool IsToken(std::string_view text) noexcept;

/// The request target (RFC 9112, 3.2.1) for a path with its query: a "/" in front if it has none, and as
/// percent escapes (RFC 3986, 2.1) the bytes that may not be there. An escape that is already in the text
/// stays as it is.
/// @param escapeQuery  false: after the first "?" only blanks and control bytes are escaped
std::string RequestTarget(std::string_view path, bool escapeQuery);

/// Where a redirect to @p location (RFC 9110, 10.2.2), absolute or relative (RFC 3986, 5.2), leads from @p target.
/// Nothing when that isn't plain http, carries credentials, can't be read, or names another host: a camera may move
/// its pages, but not make this process connect to whom it likes.
std::optional<HttpTarget> TargetOfRedirect(const HttpTarget& target, std::string_view location);

}  // namespace Web
