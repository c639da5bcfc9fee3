#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace sarnevo::platform {

/// The four numbers of a product version.
struct Version {
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::uint16_t build = 0;
  std::uint16_t revision = 0;
};

/// The product version (not the file version) in the version resource of the library file @p name, a
/// Windows portable executable that lies beside the host's executable. Nothing when there is no such
/// file, no such resource, or it is malformed. Reads the file only; nothing of it is loaded or run.
std::optional<Version> ReadProductVersion(std::string_view name);

}  // namespace sarnevo::platform
