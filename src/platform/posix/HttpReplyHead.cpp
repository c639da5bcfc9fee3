#include "platform/posix/HttpReplyHead.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace sarnevo::platform::posix {

namespace {

constexpr std::uint32_t kLowestStatus = 100;
constexpr std::array<std::uint32_t, 5> kRedirects = {301, 302, 303, 307, 308};

char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == text.npos ? std::string_view{}
                            : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// The value of the header line if it is the one called @p name, in lower case.
std::optional<std::string_view> HeaderValue(std::string_view line, std::string_view name) noexcept {
  const bool same = line.size() > name.size() && line[name.size()] == ':' &&
                    std::equal(name.begin(), name.end(), line.begin(),
                               [](char wanted, char given) { return wanted == Lower(given); });
  return same ? std::optional(Trimmed(line.substr(name.size() + 1))) : std::nullopt;
}

// A whole decimal number and nothing else; no sign, since from_chars takes none for unsigned values.
std::optional<std::uint64_t> Number(std::string_view text) noexcept {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  return error == std::errc{} && stopped == end ? std::optional(value) : std::nullopt;
}

}  // namespace

bool HttpReplyHead::IsEnd(std::string_view line) noexcept { return Trimmed(line).empty(); }

HttpError HttpReplyHead::TakeEnd(std::uint32_t status) noexcept {
  // RFC 9112, 4: three digits. The client library lets a status line pass that has none.
  if (status < kLowestStatus) {
    return HttpError::InvalidReply;
  }
  status_ = status;
  // Behind an informational head (RFC 9110, 15.2) another one follows.
  complete_ = status / 100 != 1;
  return HttpError::None;
}

HttpError HttpReplyHead::TakeLine(std::string_view line) {
  if (line.starts_with("HTTP/")) {
    *this = HttpReplyHead{};
  } else if (const auto location = HeaderValue(line, "location")) {
    location_ = *location;
  } else if (const auto length = HeaderValue(line, "content-length")) {
    // RFC 9112, 6.3: a length that can't be read, or two that differ, make the reply unusable.
    const std::optional<std::uint64_t> value = Number(*length);
    if (!value || contentLength_.value_or(*value) != *value) {
      return HttpError::InvalidReply;
    }
    contentLength_ = value;
  }
  return HttpError::None;
}

bool HttpReplyHead::IsRedirect() const noexcept {
  return complete_ && !location_.empty() &&
         std::find(kRedirects.begin(), kRedirects.end(), status_) != kRedirects.end();
}

}  // namespace sarnevo::platform::posix
