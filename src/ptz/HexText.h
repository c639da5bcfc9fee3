#pragma once

#include <string>

#include "kolvex/Types.h"

namespace sarnevo {

namespace detail {

inline std::string TwoDigits(u8 byte, const char* digits) { return {digits[byte >> 4], digits[byte & 0x0F]}; }

}  // namespace detail

/// Two hexadecimal digits. The cameras' serial CGI takes both cases; which one a command goes out in is part
/// of its wire format.
inline std::string UpperHex(u8 byte) { return detail::TwoDigits(byte, "0123456789ABCDEF"); }
inline std::string LowerHex(u8 byte) { return detail::TwoDigits(byte, "0123456789abcdef"); }

}  // namespace sarnevo
