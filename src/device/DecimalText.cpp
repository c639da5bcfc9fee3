#include "device/DecimalText.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace sarnevo {

i32 ParseDecimal(std::string_view text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  // std::from_chars knows the minus sign but no plus sign.
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);
  }
  i32 value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return text.starts_with('-') ? std::numeric_limits<i32>::min() : std::numeric_limits<i32>::max();
  }
  return value;  // from_chars leaves it at 0 when there is no number
}

}  // namespace sarnevo
