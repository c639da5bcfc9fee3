#pragma once

#include <string_view>

#include "kolvex/Types.h"

namespace sarnevo {

/// The decimal number at the beginning of @p text, after white space and one sign; 0 when there is none. A
/// number beyond 32 bits becomes the nearest one that fits. What follows the digits is ignored.
i32 ParseDecimal(std::string_view text) noexcept;

}  // namespace sarnevo
