#include "http/HttpReply.h"

#include <http_parser.h>

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
constexpr std::uint32_t kLowestStatus = 100;
// http_parser's word for a body that ends with the connection.
constexpr std::uint64_t kUntilEnd = std::numeric_limits<std::uint64_t>::max();
// Room that is worth keeping for the next reply of the same server.
constexpr std::size_t kUsualRoom = 1024;

// A whole number and nothing else; no sign, since from_chars takes none for unsigned values.
std::optional<std::uint64_t> Number(std::string_view text, int base) noexcept {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value, base);
  return error == std::errc{} && stopped == end ? std::optional(value) : std::nullopt;
}

// RFC 9112, 6.3: whatever length the head gives.
bool HasNoBody(std::uint32_t status) noexcept {
  return IsInformational(status) || status == kStatusNoContent || status == kStatusNotModified;
}

template <typename Room>
void LetGoOfMuch(Room& room) noexcept {
  if (room.capacity() > kUsualRoom) {
    Room().swap(room);
  }
}

}  // namespace

HttpReply::HttpReply() : parser_(std::make_unique<http_parser>()) {}

HttpReply::~HttpReply() = default;

void HttpReply::Begin(bool toHead) noexcept {
  toHead_ = toHead;
  hasHead_ = staysOpen_ = surplus_ = false;
  lineBytes_ = 0;
  line_.clear();
  body_.clear();
  consumed_ = 0;
  BeginHead();
}

void HttpReply::BeginHead() noexcept {
  http_parser_init(parser_.get(), HTTP_RESPONSE);
  // Chunks go before a length, and another coding before that reads to the end (RFC 9112, 6.3).
  parser_->allow_chunked_length = 1;
  parser_->lenient_http_headers = 1;
  phase_ = Phase::StatusLine;
  header_.clear();
  status_ = 0;
  contentLength_.reset();
  location_.clear();
}

HttpError HttpReply::Take(std::span<const std::uint8_t> bytes) {
  std::string_view rest(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  HttpError error = HttpError::None;
  while (!rest.empty() && error == HttpError::None) {
    if (phase_ == Phase::Whole) {
      surplus_ = true;
      break;
    }
    if (phase_ == Phase::Data) {
      TakeData(rest);
    } else {
      error = TakeLinePart(rest);
    }
  }
  return error;
}

HttpError HttpReply::TakeEnd() noexcept {
  if (phase_ == Phase::Data && left_ == kUntilEnd) {
    phase_ = Phase::Whole;
  }
  return IsWhole() ? HttpError::None : HttpError::ConnectionBroken;
}

std::string_view HttpReply::Redirect() const noexcept {
  const bool redirects = hasHead_ && std::ranges::find(kRedirects, status_) != kRedirects.end();
  return redirects ? std::string_view(location_) : std::string_view{};
}

void HttpReply::Consume(std::size_t count) noexcept {
  consumed_ += count;
  if (consumed_ >= body_.size()) {
    body_.clear();
    consumed_ = 0;
    if (IsWhole()) {
      LetGoOfMuch(body_);
    }
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
    // Seen at the first byte that differs: who doesn't speak HTTP may never end a line.
    const std::string_view begin = std::string_view(line_).substr(0, kProtocol.size());
    if (!IsSameText(begin, kProtocol.substr(0, begin.size()))) {
      return HttpError::InvalidReply;
    }
  }
  if (end == part.npos) {
    return HttpError::None;
  }
  line_.pop_back();
  while (line_.ends_with('\r')) {
    line_.pop_back();
  }
  const HttpError error = TakeLine(line_);
  line_.clear();
  LetGoOfMuch(line_);
  return error;
}

void HttpReply::TakeData(std::string_view& rest) {
  const std::string_view piece = rest.substr(0, std::min<std::uint64_t>(left_, rest.size()));
  body_.insert(body_.end(), piece.begin(), piece.end());
  rest.remove_prefix(piece.size());
  left_ -= left_ == kUntilEnd ? 0 : piece.size();
  if (left_ == 0) {
    phase_ = IsChunked() ? Phase::ChunkEnd : Phase::Whole;
  }
}

HttpError HttpReply::TakeLine(std::string_view line) {
  switch (phase_) {
    case Phase::StatusLine:
      if (line.size() < kProtocol.size()) {
        return HttpError::InvalidReply;
      }
      phase_ = Phase::Header;
      // In capitals, and without what may follow a stray carriage return.
      line = line.substr(0, line.find('\r'));
      return Feed(std::string(kProtocol).append(line.substr(kProtocol.size())).append("\r\n"));
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

// A header counts when the line after it has come, which may be its continuation (RFC 9112, 5.2).
HttpError HttpReply::TakeHeaderLine(std::string_view line) {
  if (line.starts_with(' ') || line.starts_with('\t')) {
    if (!header_.empty()) {
      header_.append(1, ' ').append(Trimmed(line));
    }
    return HttpError::None;
  }
  const HttpError error = TakeHeader();
  header_ = line;
  return error != HttpError::None || !line.empty() ? error : TakeHeadEnd();
}

HttpError HttpReply::TakeHeader() {
  const std::string_view header = header_;
  const std::size_t colon = header.find(':');
  if (colon == header.npos) {
    return HttpError::None;
  }
  const std::string_view name = Trimmed(header.substr(0, colon));
  const std::string_view value = Trimmed(header.substr(colon + 1));
  if (IsSameText(name, "Location")) {
    location_ = value;
  } else if (IsSameText(name, "Content-Length")) {
    return TakeLength(value);
  } else if (IsSameText(name, "Connection") ||
             (IsSameText(name, "Transfer-Encoding") && !value.empty() && !IsSameText(value, "identity"))) {
    return Feed(std::string(name).append(": ").append(value).append("\r\n"));
  }
  return HttpError::None;
}

HttpError HttpReply::TakeLength(std::string_view value) {
  const std::optional<std::uint64_t> length = Number(value, 10);
  if (!length || contentLength_.value_or(*length) != *length) {
    return HttpError::InvalidReply;
  }
  if (contentLength_) {
    return HttpError::None;  // said twice
  }
  contentLength_ = length;
  return Feed(std::string("Content-Length: ").append(value).append("\r\n"));
}

HttpError HttpReply::TakeHeadEnd() {
  const HttpError error = Feed("\r\n");
  status_ = parser_->status_code;
  // RFC 9112, 4: three digits; the parser takes fewer.
  if (error != HttpError::None || parser_->http_major != 1 || status_ < kLowestStatus) {
    return error != HttpError::None ? error : HttpError::InvalidReply;
  }
  if (IsInformational(status_)) {
    BeginHead();
    return HttpError::None;
  }
  hasHead_ = true;
  LetGoOfMuch(header_);
  // A coding that isn't chunked goes before a length and reads to the end (RFC 9112, 6.3).
  left_ = parser_->uses_transfer_encoding != 0 && !IsChunked() ? kUntilEnd : parser_->content_length;
  if (toHead_ || HasNoBody(status_)) {
    parser_->flags |= F_SKIPBODY;
    phase_ = Phase::Whole;
  } else if (IsChunked()) {
    phase_ = Phase::ChunkSize;
  } else {
    phase_ = left_ > 0 ? Phase::Data : Phase::Whole;
  }
  // RFC 9112, 6.1: who sends both a length and chunks may mean anything by what follows.
  staysOpen_ = http_should_keep_alive(parser_.get()) != 0 && !(contentLength_ && IsChunked());
  return HttpError::None;
}

bool HttpReply::IsChunked() const noexcept { return (parser_->flags & F_CHUNKED) != 0; }

// The size alone: what extensions (RFC 9112, 7.1.1) say is nobody's business either.
HttpError HttpReply::TakeChunkSize(std::string_view line) {
  const auto size = Number(Trimmed(line.substr(0, line.find(';'))), 16);
  if (!size || *size > kUntilEnd - 16) {  // http_parser's bound
    return HttpError::InvalidReply;
  }
  left_ = *size;
  phase_ = left_ > 0 ? Phase::Data : Phase::Trailer;
  lineBytes_ = left_ > 0 ? 0 : lineBytes_;
  return HttpError::None;
}

// One whole line of the head.
HttpError HttpReply::Feed(std::string_view line) {
  static constexpr http_parser_settings kNothingCalled{};
  http_parser_execute(parser_.get(), &kNothingCalled, line.data(), line.size());
  return HTTP_PARSER_ERRNO(parser_.get()) == HPE_OK ? HttpError::None : HttpError::InvalidReply;
}

}  // namespace Web
