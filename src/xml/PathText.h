#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace sarnevo {

/// Longest text of a path, in characters of the format's type; what goes beyond is cut off.
inline constexpr std::size_t kMaxPathLength = 1023;

/// Formats a path, printf-style, and gives it in UTF-8.
std::string FormatPath(const wchar_t* format, std::va_list arguments);
[[gnu::format(printf, 1, 0)]] std::string FormatPath(const char* format, std::va_list arguments);

}  // namespace sarnevo
