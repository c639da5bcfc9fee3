#pragma once

#include <optional>
#include <string_view>

#include "kolvex/Types.h"
#include "protocols/PortPair.h"

/// Pure steps that take the lines of an RTSP reply apart. Lines are split at white space, as scanf's %s and %d
/// do; numbers outside of 32 bits become the nearest that fits. Texts point into the line. Any thread may call.
namespace sarnevo::rtsp {

struct StatusLine {
  std::string_view version;  ///< at most 14 characters
  i32 statusCode = 0;
  std::string_view reason;  ///< its first word, at most 14 characters
};

/// Splits "RTSP/1.0 200 OK". Nothing unless the line holds "200" somewhere and all three parts are there.
std::optional<StatusLine> ParseStatusLine(std::string_view line) noexcept;

/// The second word of a line; the first is a header's name, which nobody looks at.
std::optional<std::string_view> ParseTextHeader(std::string_view line) noexcept;
/// The number after the first word of a line, which has at most 254 characters.
std::optional<i32> ParseNumberHeader(std::string_view line) noexcept;

/// Finds @p key, which ends with "=", and then "a-b" in a Transport value. Nothing when one of them is 0, or @p end
/// doesn't come somewhere after the "-".
std::optional<PortPair> ParsePorts(std::string_view transport, std::string_view key,
                                   std::string_view end) noexcept;

}  // namespace sarnevo::rtsp
