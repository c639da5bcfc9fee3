#include "xml/PathText.h"

#include <array>
#include <cstdio>
#include <cwchar>
#include <exception>

#include "xml/Utf8.h"

namespace sarnevo {

std::optional<std::string> FormatPath(const wchar_t* format, std::va_list arguments) noexcept {
  try {
    std::array<wchar_t, kMaxPathLength + 1> buffer{};
    // A text that doesn't fit counts as a failure here, but what fits has been written.
    static_cast<void>(std::vswprintf(buffer.data(), buffer.size(), format, arguments));
    buffer.back() = L'\0';
    return ToUtf8(buffer.data());
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::string> FormatPath(const char* format, std::va_list arguments) noexcept {
  try {
    std::array<char, kMaxPathLength + 1> buffer{};
    static_cast<void>(std::vsnprintf(buffer.data(), buffer.size(), format, arguments));
    return buffer.data();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace sarnevo
