#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Texts are UTF-8 (RFC 3629) at the border to the host and in files, and wide strings inside: UTF-32 where
/// wchar_t has 32 bits, UTF-16 where it has 16.
namespace sarnevo {

/// Nothing when @p text isn't valid UTF-8: overlong forms, surrogates and numbers above U+10FFFF aren't.
std::optional<std::wstring> FromUtf8(std::string_view text);

/// What is no character, a lone surrogate for instance, becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);

/// Whether an XML 1.0 document can carry the text (section 2.2): valid, no control characters but tab, line feed
/// and carriage return, neither U+FFFE nor U+FFFF.
bool IsXmlText(std::string_view text) noexcept;

}  // namespace sarnevo
