#include "device/CQualitySettings.h"

#include <string>

#include "device/DecimalText.h"

namespace sarnevo {

std::vector<i32> ParseBitrateList(std::string_view text) {
  constexpr char kEnd = 'e';
  constexpr char kSeparator = ',';
  std::vector<i32> bitrates;
  std::string number;
  for (const char next : text) {
    if (next == kEnd) {
      break;
    }
    if (next == kSeparator) {
      bitrates.push_back(ParseDecimal(number));
      number.clear();
    } else {
      number += next;
    }
  }
  return bitrates;
}

}  // namespace sarnevo
