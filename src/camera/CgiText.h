#pragma once

#include <span>
#include <string>
#include <string_view>

/// Text operations on the replies of a camera's CGI requests: plain texts of the form key=value. All are
/// pure and linear in the size of the text; letters are those of ASCII, whatever the host's locale.
namespace sarnevo {

/// Looks up the value of a key that is followed by a separator.
///
/// An occurrence of @p key counts only when the separator follows it, blanks and tabs apart, before any
/// terminator; it may be the end of a longer word. The value begins after the separator and ends before the
/// next terminator or the end.
/// @param terminators  a set of characters
/// @return the value; empty when there is none, or when a text is empty
std::string GetCgiValue(std::string_view text, std::string_view key, std::string_view separator,
                        std::string_view terminators);

/// Copies what follows the first "=" at or after the first occurrence of @p key, whatever is
/// between the two: up to @p stop, LF, CR, the end of the text, or as much as fits @p out with a zero at
/// its end.
/// @return false, with @p out empty, when there is no such key or "="
bool ExtractCgiValue(std::string_view text, std::string_view key, std::span<char> out, char stop);

/// The value of @p key in the reply of a camera's serial ports: it begins after the first @p separator that follows the
/// key's first place, and ends before a "<", a line's end or the end of the text: replies are lines of
/// the form key=value, some with markup after the value. Empty when key or separator is missing.
std::string_view FindCgiValue(std::string_view text, std::string_view key, std::string_view separator) noexcept;

std::string ToLowerText(std::string_view text);

/// Without blanks and tabs at either end.
std::string TrimText(std::string_view text);

/// Without all characters of @p set.
std::string RemoveCharacters(std::string_view text, std::string_view set);

}  // namespace sarnevo
