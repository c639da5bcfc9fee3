#include "xml/PathText.h"

#include <array>
#include <cstdio>
#include <cwchar>

#include "xml/Guarded.h"
#include "xml/Utf8.h"

namespace sarnevo {

std::optional<std::string> FormatPath(const wchar_t* format, std::va_list arguments) noexcept {
  std::array<wchar_t, kMaxPathLength + 1> buffer{};
  // A text that doesn't fit counts as a failure here, but what fits has been written.
  static_cast<void>(std::vswprintf(buffer.data(), buffer.size(), format, arguments));
  buffer.back() = L'\0';
  return Guarded(std::optional<std::string>(), [&] { return std::optional(ToUtf8(buffer.data())); });
}

std::optional<std::string> FormatPath(const char* format, std::va_list arguments) noexcept {
  std::array<char, kMaxPathLength + 1> buffer{};
  static_cast<void>(std::vsnprintf(buffer.data(), buffer.size(), format, arguments));
  return Guarded(std::optional<std::string>(), [&] { return std::optional<std::string>(buffer.data()); });
}

}  // namespace sarnevo
