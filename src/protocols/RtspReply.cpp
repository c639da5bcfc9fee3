#include "protocols/RtspReply.h"

#include <algorithm>

#include "device/DecimalText.h"

namespace sarnevo::rtsp {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::size_t kMaxToken = 14;
constexpr std::size_t kMaxTag = 254;

// Takes the next word off @p text. Nothing at its end, and when the word is longer than @p maxLength.
std::optional<std::string_view> TakeWord(std::string_view& text,
                                         std::size_t maxLength = std::string_view::npos) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kWhiteSpace));
  if (word.empty() || word.size() > maxLength) {
    return std::nullopt;
  }
  text.remove_prefix(word.size());
  return word;
}

}  // namespace

std::optional<StatusLine> ParseStatusLine(std::string_view line) noexcept {
  if (line.find("200") == std::string_view::npos) {
    return std::nullopt;
  }
  const auto version = TakeWord(line, kMaxToken);
  const auto code = version ? TakeDecimal(line) : std::nullopt;
  const auto reason = code ? TakeWord(line, kMaxToken) : std::nullopt;
  return reason ? std::optional(StatusLine{*version, *code, *reason}) : std::nullopt;
}

std::optional<std::string_view> ParseTextHeader(std::string_view line) noexcept {
  return TakeWord(line) ? TakeWord(line) : std::nullopt;
}

std::optional<i32> ParseNumberHeader(std::string_view line) noexcept {
  return TakeWord(line, kMaxTag) ? TakeDecimal(line) : std::nullopt;
}

std::optional<PortPair> ParsePorts(std::string_view transport, std::string_view key,
                                   std::string_view end) noexcept {
  const std::size_t found = transport.find(key);
  const std::size_t dash = found != std::string_view::npos ? transport.find('-', found) : found;
  if (dash == std::string_view::npos || transport.find(end, dash) == std::string_view::npos) {
    return std::nullopt;
  }
  const std::size_t first = found + key.size();
  const PortPair ports{ParseDecimal(transport.substr(first, dash - first)),
                       ParseDecimal(transport.substr(dash + 1))};
  return ports.rtp != 0 && ports.rtcp != 0 ? std::optional(ports) : std::nullopt;
}

}  // namespace sarnevo::rtsp
