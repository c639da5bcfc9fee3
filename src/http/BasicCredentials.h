#pragma once

#include <string>
#include <string_view>

namespace Web {

/// The header line of Basic credentials (RFC 7617), without an end. In one piece of memory that it fits into
/// from the start, so that wiping the text wipes all there is of it.
std::string BasicCredentials(std::string_view userName, std::string_view password);

}  // namespace Web
