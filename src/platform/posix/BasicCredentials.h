#pragma once

#include <string>
#include <string_view>

namespace sarnevo::platform::posix {

/// The header line of Basic credentials, RFC 7617, 2, without its end. @p userName has no ":" in it; one that
/// has would be read as a shorter name.
std::string BasicCredentials(std::string_view userName, std::string_view password);

}  // namespace sarnevo::platform::posix
