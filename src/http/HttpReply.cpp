#include "http/HttpReply.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "device/AsciiText.h"
#include "http/HttpStatus.h"

namespace Web {

namespace {

using sarnevo::IsSameText;
using sarnevo::Trimmed;

constexpr std::string_view kProtocol = "HTTP/";
constexpr std::array<std::uint32_t, 5> kRedirects = {301, 302, 303, 307, 308};
// The length of a body that ends with the connection: far above any that a server can mean.
constexpr std::uint64_t kUntilEnd = std::numeric_limits<std::uint64_t>::max();

// A whole number and nothing else; no sign, since from_chars takes none for unsigned values.
std::optional<std::uint64_t> Number(std::string_view text, int base) noexcept {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value, base);
  return error == std::errc{} && stopped == end && value != kUntilEnd ? std::optional(value) : std::nullopt;
}

// Whether a list (RFC 9110, 5.6.1) has the word in it.
bool Lists(std::string_view list, std::string_view word) noexcept {
  while (!list.empty()) {
    const std::string_view element = list.substr(0, list.find(','));
    if (IsSameText(Trimmed(element), word)) {
      return true;
    }
    list.remove_prefix(std::min(element.size() + 1, list.size()));
  }
  return false;
}

}  // namespace

HttpError HttpReply::Take(std::span<const std::uint8_t> bytes) {
  std::string_view rest(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  HttpError error = HttpError::None;
  while (!rest.empty() && error == HttpError::None && !IsWhole()) {
    if (phase_ == Phase::Data) {
      TakeData(rest);
    } else {
      error = TakeLinePart(rest);
    }
  }
  surplus_ = !rest.empty();
  return error;
}

HttpError HttpReply::TakeEnd() noexcept {
  if (phase_ == Phase::Data && left_ == kUntilEnd) {
    phase_ = Phase::Whole;
  }
  return IsWhole() ? HttpError::None : HttpError::ConnectionBroken;
}

// RFC 9112, 9.3. A server that sends both a length and chunks may mean anything by what follows (6.1).
bool HttpReply::LeavesOpen() const noexcept {
  const bool keeps = head_.isOld ? head_.saysKeep : !head_.saysClose;
  const bool ambiguous = head_.length && head_.isChunked;
  return IsWhole() && left_ == 0 && keeps && !ambiguous && !surplus_;
}

std::string_view HttpReply::Redirect() const noexcept {
  const bool redirects = HasHead() && std::ranges::find(kRedirects, head_.status) != kRedirects.end();
  return redirects ? std::string_view(head_.location) : std::string_view{};
}

void HttpReply::Consume(std::size_t count) noexcept {
  consumed_ += count;
  if (consumed_ >= body_.size()) {
    consumed_ = 0;
    body_.clear();
  }
}

// Up to the end of the line, or as far as it has come.
HttpError HttpReply::TakeLinePart(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  const std::string_view part = rest.substr(0, end == rest.npos ? end : end + 1);
  lineBytes_ += part.size();
  if (lineBytes_ > kMaxHeadBytes) {
    return HttpError::ReplyTooLarge;
  }
  rest.remove_prefix(part.size());
  line_ += part;
  if (phase_ == Phase::StatusLine) {
    // Refused at the first byte that differs: a server that doesn't speak HTTP may never end a line.
    const std::string_view begin = std::string_view(line_).substr(0, kProtocol.size());
    if (!IsSameText(begin, kProtocol.substr(0, begin.size()))) {
      return HttpError::InvalidReply;
    }
  }
  if (end == part.npos) {
    return HttpError::None;
  }
  std::string line;
  line.swap(line_);
  line.erase(line.find_last_not_of("\r\n") + 1);
  return TakeLine(line);
}

void HttpReply::TakeData(std::string_view& rest) {
  const std::string_view piece = rest.substr(0, std::min<std::uint64_t>(left_, rest.size()));
  body_.insert(body_.end(), piece.begin(), piece.end());
  rest.remove_prefix(piece.size());
  left_ -= left_ == kUntilEnd ? 0 : piece.size();
  if (left_ == 0) {
    phase_ = head_.isChunked ? Phase::ChunkEnd : Phase::Whole;
  }
}

HttpError HttpReply::TakeLine(std::string_view line) {
  switch (phase_) {
    case Phase::StatusLine:
      phase_ = Phase::Header;
      return TakeStatusLine(line.substr(0, line.find('\r')));  // a stray carriage return ends it as well
    case Phase::Header:
      return TakeHeaderLine(line);
    case Phase::ChunkSize:
      return TakeChunkSize(line);
    case Phase::ChunkEnd:
      phase_ = Phase::ChunkSize;
      return line.empty() ? HttpError::None : HttpError::InvalidReply;
    default:
      phase_ = line.empty() ? Phase::Whole : phase_;  // what a trailer says is nobody's business
      return HttpError::None;
  }
}

// RFC 9112, 4. Old cameras put more blanks and zeros in front of the status, and leave the reason out.
HttpError HttpReply::TakeStatusLine(std::string_view line) {
  line.remove_prefix(std::min(kProtocol.size(), line.size()));
  if (line.size() < 4 || !line.starts_with("1.") || line[2] < '0' || line[2] > '9' || line[3] != ' ') {
    return HttpError::InvalidReply;
  }
  head_.isOld = line[2] == '0';
  line.remove_prefix(std::min(line.find_first_not_of(' ', 3), line.size()));
  const auto status = Number(line.substr(0, line.find(' ')), 10);
  if (!status || *status < 100 || *status > 999) {
    return HttpError::InvalidReply;
  }
  head_.status = static_cast<std::uint32_t>(*status);
  return HttpError::None;
}

// A header counts when the line after it has come, which may be its continuation (RFC 9112, 5.2).
HttpError HttpReply::TakeHeaderLine(std::string_view line) {
  if (line.starts_with(' ') || line.starts_with('\t')) {
    if (!header_.empty()) {
      header_.append(1, ' ').append(Trimmed(line));
    }
    return HttpError::None;
  }
  std::string header(line);
  header.swap(header_);
  const HttpError error = TakeHeader(header);
  if (error == HttpError::None && line.empty()) {
    TakeHeadEnd();
  }
  return error;
}

HttpError HttpReply::TakeHeader(std::string_view header) {
  const std::size_t colon = header.find(':');
  if (colon == header.npos) {
    return HttpError::None;
  }
  const std::string_view name = Trimmed(header.substr(0, colon));
  const std::string_view value = Trimmed(header.substr(colon + 1));
  const bool isConnection = IsSameText(name, "Connection");
  const bool isCoding =
      IsSameText(name, "Transfer-Encoding") && !value.empty() && !IsSameText(value, "identity");
  if (IsSameText(name, "Location")) {
    head_.location = value;
  } else if (IsSameText(name, "Content-Length")) {
    const auto length = Number(value, 10);
    if (!length || head_.length.value_or(*length) != *length) {
      return HttpError::InvalidReply;
    }
    head_.length = length;
  } else if ((isConnection || isCoding) && value.find('\r') != value.npos) {
    return HttpError::InvalidReply;  // others may take it for a line's end (RFC 9112, 2.2)
  } else if (isConnection) {
    head_.saysKeep = head_.saysKeep || Lists(value, "keep-alive");
    head_.saysClose = head_.saysClose || Lists(value, "close");
  } else if (isCoding) {
    head_.isCoded = true;
    // Of all codings, in this header or several, the last one counts.
    head_.isChunked = IsSameText(Trimmed(value.substr(value.rfind(',') + 1)), "chunked");
  }
  return HttpError::None;
}

// RFC 9112, 6.3: chunks go before a length, and another coding before that reads to the end.
void HttpReply::TakeHeadEnd() noexcept {
  if (IsInformational(head_.status)) {
    head_ = {};
    phase_ = Phase::StatusLine;
  } else if (toHead_ || head_.status == kStatusNoContent || head_.status == kStatusNotModified) {
    phase_ = Phase::Whole;  // whatever length the head gives
  } else if (head_.isChunked) {
    phase_ = Phase::ChunkSize;
  } else {
    left_ = head_.isCoded ? kUntilEnd : head_.length.value_or(kUntilEnd);
    phase_ = left_ > 0 ? Phase::Data : Phase::Whole;
  }
}

// The size alone; extensions (RFC 9112, 7.1.1) are ignored.
HttpError HttpReply::TakeChunkSize(std::string_view line) {
  const auto size = Number(Trimmed(line.substr(0, line.find(';'))), 16);
  if (!size) {
    return HttpError::InvalidReply;
  }
  left_ = *size;
  phase_ = left_ > 0 ? Phase::Data : Phase::Trailer;
  lineBytes_ = left_ > 0 ? 0 : lineBytes_;
  return HttpError::None;
}

}  // namespace Web
