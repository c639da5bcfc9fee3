#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "web/Http.h"

namespace kolvex_console {

/// The header fields that decide whether a request is let in. Empty: the field is missing.
struct Claims {
  std::string_view method;
  std::string_view host;
  std::size_t hosts = 1;  ///< how many Host fields there were
  std::string_view origin;
  std::string_view fetchSite;  ///< Sec-Fetch-Site, of W3C Fetch Metadata
  std::string_view fetchMode;
};

/// Keeps out what other pages in the same browser send to this server (cross-site requests), and pages of
/// other names that resolve to this machine (DNS rebinding). Programs that are no browser send none of these
/// fields but Host and pass.
///
/// @p names are host names that this server is known by, lower case; addresses and localhost always are: a
/// rebound page has a name.
///
/// Nothing when the request may pass.
std::optional<Reply> Refuse(const Claims& claims, const std::set<std::string>& names);

}  // namespace kolvex_console
