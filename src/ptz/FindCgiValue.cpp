#include "ptz/FindCgiValue.h"

#include <cstddef>

namespace sarnevo {

std::string_view FindCgiValue(std::string_view text, std::string_view key,
                              std::string_view separator) noexcept {
  const std::size_t keyAt = text.find(key);
  if (keyAt == std::string_view::npos) {
    return {};
  }
  const std::size_t separatorAt = text.find(separator, keyAt);
  if (separatorAt == std::string_view::npos) {
    return {};
  }
  text.remove_prefix(separatorAt + separator.size());
  return text.substr(0, text.find_first_of("<\n\r"));
}

}  // namespace sarnevo
