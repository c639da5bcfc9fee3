#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Small text operations that the CGI, the control commands and the command line share.
namespace simcam {

/// The parameters of a query, percent-decoded, in their order; doubled keys stay doubled.
class Parameters {
 public:
  static Parameters Parse(std::string_view query, char separator = '&');

  /// The first value of the key; nothing when it is absent.
  std::optional<std::string> Find(std::string_view key) const;
  const std::vector<std::pair<std::string, std::string>>& items() const& { return items_; }
  void items() const&& = delete;  // a loop over a temporary's items would outlive them

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

/// The whole text as a number within the bounds, or nothing.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t minimum, std::uint64_t maximum);
std::optional<double> ParseReal(std::string_view text, double minimum, double maximum);

std::vector<std::string_view> Split(std::string_view text, char separator);
std::string ToUpper(std::string_view text);
std::string DecodePercent(std::string_view text);

/// RFC 4648; used to compare credentials, so only this direction is needed.
std::string EncodeBase64(std::string_view bytes);

/// An even count of hexadecimal digits as bytes, or nothing.
std::optional<std::vector<std::uint8_t>> DecodeHex(std::string_view digits);

/// printf into a string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace simcam
