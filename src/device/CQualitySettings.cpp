#include "device/CQualitySettings.h"

#include <cstddef>

#include "device/DecimalText.h"

namespace sarnevo {

std::vector<i32> ParseBitrateList(std::string_view text) {
  text = text.substr(0, text.find('e'));
  std::vector<i32> bitrates;
  for (std::size_t end = text.find(','); end != text.npos; end = text.find(',')) {
    bitrates.push_back(ParseDecimal(text.substr(0, end)));
    text.remove_prefix(end + 1);
  }
  return bitrates;
}

}  // namespace sarnevo
