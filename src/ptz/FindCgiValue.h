#pragma once

#include <string_view>

namespace sarnevo {

/// The value of @p key in the reply of a camera's CGI. From the first place of the key on, it stands behind the
/// first @p separator and ends before a "<", a line's end or the end of the text: replies are lines of
/// the form key=value, some with markup behind the value. Empty when key or separator is missing.
std::string_view FindCgiValue(std::string_view text, std::string_view key, std::string_view separator) noexcept;

}  // namespace sarnevo
