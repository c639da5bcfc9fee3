#include "simcam/base/Text.h"

namespace simcam {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Parameters Parameters::Parse(std::string_view query, char separator) {
  Parameters parameters;
  for (const std::string_view item : Split(query, separator)) {
    if (item.empty()) {
      continue;
    }
    const std::size_t equals = item.find('=');
    parameters.items_.emplace_back(
        DecodePercent(item.substr(0, equals)),
        equals == std::string_view::npos ? std::string{} : DecodePercent(item.substr(equals + 1)));
  }
  return parameters;
}

std::optional<std::string> Parameters::Find(std::string_view key) const {
  for (const auto& [name, value] : items_) {
    if (name == key) {
      return value;
    }
  }
  return std::nullopt;
}

std::string ToUpper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
  }
  return upper;
}

std::string DecodePercent(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '%' && text.size() - at > 2 && HexDigit(text[at + 1]) >= 0 && HexDigit(text[at + 2]) >= 0) {
      decoded.push_back(static_cast<char>(HexDigit(text[at + 1]) * 16 + HexDigit(text[at + 2])));
      at += 2;
    } else {
      decoded.push_back(text[at]);
    }
  }
  return decoded;
}

std::string EncodeBase64(std::string_view bytes) {
  static constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = (group << 8U) | (i < count ? static_cast<std::uint8_t>(bytes[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text.push_back(i <= count ? kAlphabet[(group >> (18 - 6 * i)) & 63U] : '=');
    }
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> DecodeHex(std::string_view digits) {
  if (digits.size() % 2 != 0) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    const int high = HexDigit(digits[at]);
    const int low = HexDigit(digits[at + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
  }
  return bytes;
}

}  // namespace simcam
