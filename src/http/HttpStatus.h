#pragma once

#include "kolvex/Types.h"

/// The status codes (RFC 9110, 15) that something here depends on.
namespace Web {

constexpr sarnevo::u32 kStatusOk = 200;
constexpr sarnevo::u32 kStatusNoContent = 204;
constexpr sarnevo::u32 kStatusNotModified = 304;
constexpr sarnevo::u32 kStatusUnauthorized = 401;

constexpr bool IsInformational(sarnevo::u32 status) noexcept { return status / 100 == 1; }
constexpr bool IsSuccess(sarnevo::u32 status) noexcept { return status / 100 == 2; }

}  // namespace Web
