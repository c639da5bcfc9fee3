#include "protocols/RtspReply.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace sarnevo::rtsp {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::size_t kMaxToken = 14;
constexpr std::size_t kMaxTag = 254;

// Takes words and numbers off the front of a text.
class Scanner {
 public:
  explicit Scanner(std::string_view text) noexcept : rest_(text) {}

  // Nothing at the end of the text, and when the next word is longer than maxLength.
  std::optional<std::string_view> Word(std::size_t maxLength = std::string_view::npos) noexcept {
    SkipWhiteSpace();
    const std::string_view word = rest_.substr(0, rest_.find_first_of(kWhiteSpace));
    if (word.empty() || word.size() > maxLength) {
      return std::nullopt;
    }
    rest_.remove_prefix(word.size());
    return word;
  }

  // An optional sign and digits; ends at the first other character.
  std::optional<i32> Number() noexcept {
    SkipWhiteSpace();
    const bool negative = rest_.starts_with('-');
    if (negative || rest_.starts_with('+')) {
      rest_.remove_prefix(1);
    }
    u32 digits = 0;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), digits);
    if (error == std::errc::invalid_argument) {
      return std::nullopt;
    }
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    using Limits = std::numeric_limits<i32>;
    const i64 magnitude = error == std::errc{} ? i64{digits} : std::numeric_limits<i64>::max();
    const i64 value = negative ? -magnitude : magnitude;
    return static_cast<i32>(std::clamp<i64>(value, Limits::min(), Limits::max()));
  }

 private:
  using i64 = std::int64_t;

  void SkipWhiteSpace() noexcept {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(kWhiteSpace), rest_.size()));
  }

  std::string_view rest_;
};

i32 NumberOrZero(std::string_view text) noexcept { return Scanner(text).Number().value_or(0); }

}  // namespace

std::optional<StatusLine> ParseStatusLine(std::string_view line) noexcept {
  if (line.find("200") == std::string_view::npos) {
    return std::nullopt;
  }
  Scanner scanner(line);
  const auto version = scanner.Word(kMaxToken);
  const auto code = version ? scanner.Number() : std::nullopt;
  const auto reason = code ? scanner.Word(kMaxToken) : std::nullopt;
  return reason ? std::optional(StatusLine{*version, *code, *reason}) : std::nullopt;
}

std::optional<std::string_view> ParseTextHeader(std::string_view line) noexcept {
  Scanner scanner(line);
  return scanner.Word() ? scanner.Word() : std::nullopt;
}

std::optional<i32> ParseNumberHeader(std::string_view line) noexcept {
  Scanner scanner(line);
  return scanner.Word(kMaxTag) ? scanner.Number() : std::nullopt;
}

std::optional<PortPair> ParsePorts(std::string_view transport, std::string_view key,
                                   std::string_view end) noexcept {
  const std::size_t found = transport.find(key);
  const std::size_t dash = found != std::string_view::npos ? transport.find('-', found) : found;
  if (dash == std::string_view::npos || transport.find(end, dash) == std::string_view::npos) {
    return std::nullopt;
  }
  const std::size_t first = found + key.size();
  const PortPair ports{NumberOrZero(transport.substr(first, dash - first)),
                       NumberOrZero(transport.substr(dash + 1))};
  return ports.rtp != 0 && ports.rtcp != 0 ? std::optional(ports) : std::nullopt;
}

}  // namespace sarnevo::rtsp
