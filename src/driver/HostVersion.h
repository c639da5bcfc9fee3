#pragma once

#include <compare>

#include "kolvex/Types.h"

namespace sarnevo {

/// How new the host is: the product version of its core library.
struct HostVersion {
  u16 major = 0;
  u16 minor = 0;
  u16 build = 0;
  u16 revision = 0;

  constexpr auto operator<=>(const HostVersion&) const = default;

  /// The first number that differs decides; the same version counts as at least itself.
  constexpr bool IsAtLeast(u16 wantedMajor, u16 wantedMinor, u16 wantedBuild,
                           u16 wantedRevision) const noexcept {
    return *this >= HostVersion{wantedMajor, wantedMinor, wantedBuild, wantedRevision};
  }
};

}  // namespace sarnevo
