#pragma once

#include <cstdarg>
#include <cstddef>
#include <optional>
#include <string>

namespace sarnevo {

/// Longest text of a path, in characters of the format's type; what goes beyond is cut off.
inline constexpr std::size_t kMaxPathLength = 1023;

/// Formats a path, printf-style, and gives it in UTF-8; nothing without memory.
std::optional<std::string> FormatPath(const wchar_t* format, std::va_list arguments) noexcept;
[[gnu::format(printf, 1, 0)]] std::optional<std::string> FormatPath(const char* format,
                                                                    std::va_list arguments) noexcept;

}  // namespace sarnevo
