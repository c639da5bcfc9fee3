#pragma once

#include <optional>
#include <string_view>

#include "kolvex/Types.h"

namespace sarnevo {

/// Takes the decimal number at the beginning of @p text, after white space and one sign, off it; nothing when there is
/// none. A number beyond 32 bits becomes the nearest one that fits.
std::optional<i32> TakeDecimal(std::string_view& text) noexcept;
/// The same number, 0 when there is none. What follows the digits is ignored.
inline i32 ParseDecimal(std::string_view text) noexcept { return TakeDecimal(text).value_or(0); }

}  // namespace sarnevo
