#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/printf.h>

#include "Texts.h"

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

using kolvex_tools::ParseNumber;
using kolvex_tools::ParseReal;
using kolvex_tools::Split;
std::string ToUpper(std::string_view text);
std::string DecodePercent(std::string_view text);

/// RFC 4648; used to compare credentials, so only this direction is needed.
std::string EncodeBase64(std::string_view bytes);

/// An even count of hexadecimal digits as bytes, or nothing.
std::optional<std::vector<std::uint8_t>> DecodeHex(std::string_view digits);

/// printf into a string.
template <typename... Values>
std::string Format(const char* format, const Values&... values) {
  return fmt::sprintf(format, values...);
}

}  // namespace simcam
