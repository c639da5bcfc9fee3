#include "device/DecimalText.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace sarnevo {

std::optional<i32> TakeDecimal(std::string_view& text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  // std::from_chars knows the minus sign but no plus sign.
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);
  }
  const bool isNegative = text.starts_with('-');
  i32 value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  using Limits = std::numeric_limits<i32>;
  return error == std::errc{} ? value : isNegative ? Limits::min() : Limits::max();
}

}  // namespace sarnevo
