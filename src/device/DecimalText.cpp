#include "device/DecimalText.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace sarnevo {

i32 ParseDecimal(std::string_view text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  // std::from_chars knows the minus sign but no plus sign.
  const bool signGiven = !text.empty() && (text.front() == '+' || text.front() == '-');
  const bool negative = signGiven && text.front() == '-';
  if (signGiven && !negative) {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') {
      return 0;
    }
  }
  i32 value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<i32>::min() : std::numeric_limits<i32>::max();
  }
  return value;  // from_chars leaves it at 0 when there is no number
}

}  // namespace sarnevo
