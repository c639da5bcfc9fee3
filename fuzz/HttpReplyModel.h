#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kolvex_fuzz {

/// What a reply means, read from all of its bytes at once and by rules of its own: what is taken of old cameras, and
/// what isn't.
class HttpReplyModel {
 public:
  enum class End {
    Whole,
    Open,    ///< a body that ends with the connection
    Bad,     ///< cut, or nothing that can be read on
    Unsure,  ///< not modelled
  };

  explicit HttpReplyModel(std::string_view bytes) : rest_(bytes) { end = Read(); }

  End end;
  bool hasHead = false;  ///< else the whole reply is bad
  std::uint64_t status = 0;
  std::string location;
  std::string body;  ///< as far as it is good

 private:
  static std::string Trimmed(std::string_view text) {
    const std::size_t from = std::min(text.find_first_not_of(" \t"), text.size());
    return std::string(text.substr(from, text.find_last_not_of(" \t") + 1 - from));
  }
  static std::string Lower(std::string text) {
    for (char& c : text) {
      c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return text;
  }
  static std::optional<std::uint64_t> Number(std::string_view text, int base) {
    std::uint64_t value = 0;
    const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && at == text.data() + text.size() ? std::optional(value) : std::nullopt;
  }

  // A line ends with a line feed; carriage returns in front of it are no part of it.
  std::optional<std::string> Line() {
    const std::size_t at = rest_.find('\n');
    if (at == rest_.npos) {
      return std::nullopt;
    }
    std::string line(rest_.substr(0, at));
    rest_.remove_prefix(at + 1);
    line.erase(line.find_last_not_of('\r') + 1);
    return line;
  }

  End Read() {
    do {
      if (!ReadHead()) {
        return unsure_ ? End::Unsure : End::Bad;
      }
    } while (status < 200);  // informational heads are forgotten
    if (unsure_) {
      return End::Unsure;
    }
    hasHead = true;
    if (status == 204 || status == 304) {
      return End::Whole;
    }
    if (chunked_) {  // whatever length there is beside it
      return ReadChunks() ? End::Whole : End::Bad;
    }
    body = rest_.substr(0, length_.value_or(rest_.size()));
    return !length_ ? End::Open : body.size() == *length_ ? End::Whole : End::Bad;
  }

  bool ReadHead() {
    length_.reset();
    chunked_ = false;
    location.clear();
    const auto line = Line();
    if (!line || !ReadStatus(line->substr(0, line->find('\r')))) {
      return false;
    }
    std::string header;
    for (;;) {
      const auto next = Line();
      if (!next) {
        return false;
      }
      if (next->starts_with(' ') || next->starts_with('\t')) {
        // A folded line continues the header; in front of all headers it is dropped.
        header += header.empty() ? "" : " " + Trimmed(*next);
      } else if (!ReadHeader(std::exchange(header, *next))) {
        return false;
      } else if (next->empty()) {
        return true;
      }
    }
  }

  // HTTP, in any case, of version 1 with one digit after the point, any number of blanks, a number of three digits,
  // leading zeros apart, and a reason or none.
  bool ReadStatus(const std::string& line) {
    const auto digit = [&](std::size_t at) { return at < line.size() && line[at] >= '0' && line[at] <= '9'; };
    if (Lower(line.substr(0, 5)) != "http/" || line.find("1.", 5) != 5 || !digit(7) || line.find(' ', 8) != 8) {
      return false;
    }
    const std::size_t from = std::min(line.find_first_not_of(' ', 8), line.size());
    const auto number = Number(line.substr(from, line.find(' ', from) - from), 10);
    status = number.value_or(0);
    return status >= 100 && status <= 999;
  }

  bool ReadHeader(const std::string& header) {
    const std::size_t colon = header.find(':');
    if (colon == header.npos) {
      return true;  // no header at all: dropped
    }
    const std::string name = Lower(Trimmed(std::string_view(header).substr(0, colon)));
    const std::string value = Trimmed(std::string_view(header).substr(colon + 1));
    if (name == "location") {
      location = value;
    } else if (name == "content-length") {
      // The same twice is once; another one, or what is no number, makes it no reply.
      const auto number = Number(value, 10);
      unsure_ = unsure_ || number.value_or(0) > std::uint64_t{1} << 60;
      const bool good = number && length_.value_or(*number) == *number;
      length_ = number;
      return good;
    } else if (name == "transfer-encoding" && Lower(value) != "identity") {
      chunked_ = Lower(value) == "chunked";
      unsure_ = unsure_ || !chunked_;
    } else if (name == "connection") {
      unsure_ = unsure_ || value.find('\r') != value.npos;
    }
    return true;
  }

  bool ReadChunks() {
    for (;;) {
      const auto line = Line();
      if (!line) {
        return false;
      }
      const std::string text = Trimmed(std::string_view(*line).substr(0, line->find(';')));
      const auto size = text.starts_with('-') || text.size() > 12 ? std::nullopt : Number(text, 16);
      if (!size) {
        return false;
      }
      if (*size == 0) {
        break;
      }
      body += rest_.substr(0, *size);
      if (rest_.size() < *size) {
        return false;
      }
      rest_.remove_prefix(*size);
      if (const auto empty = Line(); !empty || !empty->empty()) {
        return false;
      }
    }
    for (auto line = Line(); line; line = Line()) {  // trailers are dropped, whatever they say
      if (line->empty()) {
        return true;
      }
    }
    return false;
  }

  std::string_view rest_;
  std::optional<std::uint64_t> length_;
  bool chunked_ = false;
  bool unsure_ = false;
};

}  // namespace kolvex_fuzz
