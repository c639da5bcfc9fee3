#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/File.h"

namespace sarnevo::platform {

/// The four numbers of a product version.
struct Version {
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::uint16_t build = 0;
  std::uint16_t revision = 0;

  constexpr auto operator<=>(const Version&) const = default;

  /// The first number that differs decides; the same version counts as at least itself.
  constexpr bool IsAtLeast(std::uint16_t wantedMajor, std::uint16_t wantedMinor, std::uint16_t wantedBuild,
                           std::uint16_t wantedRevision) const noexcept {
    return *this >= Version{wantedMajor, wantedMinor, wantedBuild, wantedRevision};
  }
};

/// The product version (not the file version) in the version resource of the library file @p name, a
/// Windows portable executable that lies beside the host's executable. Nothing when there is no such
/// file, no such resource, or it is malformed. Reads the file only; nothing of it is loaded or run.
std::optional<Version> ReadProductVersion(std::string_view name);

/// The product version in the version resource of a portable executable (32-bit "PE32" or 64-bit "PE32+",
/// any machine, as Microsoft's "PE Format" describes it). Nothing when @p file isn't one, holds no such
/// resource, or is malformed on the way there. Trusts no number in the file: the work and the memory are
/// bounded whatever it says.
std::optional<Version> ReadVersionResource(const ByteSource& file);

}  // namespace sarnevo::platform
