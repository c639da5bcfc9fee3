#pragma once

#include <string>
#include <string_view>

namespace sarnevo::platform::posix {

/// The request target (RFC 9112, 3.2.1) for a path with its query: a "/" in front if it has none, and as
/// percent escapes (RFC 3986, 2.1) the bytes that may not stand there. An escape that is already in the text
/// stays as it is.
/// @param escapeQuery  false: behind the first "?" only blanks and control bytes are escaped
std::string RequestTarget(std::string_view path, bool escapeQuery);

/// A token of RFC 9110, 5.6.2.
bool IsToken(std::string_view text) noexcept;

}  // namespace sarnevo::platform::posix
