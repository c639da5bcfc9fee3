#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/ProductVersion.h"

namespace sarnevo::platform {

/// Random access to the bytes of a file.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  /// Fills all of @p into from @p offset on. False when the file has fewer bytes there; any offset is allowed.
  virtual bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;
};

/// The product version in the version resource of a portable executable (32-bit "PE32" or 64-bit "PE32+",
/// any machine, as Microsoft's "PE Format" describes it). Nothing when @p file isn't one, holds no such
/// resource, or is malformed on the way there. Trusts no number in the file: the work and the memory are
/// bounded whatever it says.
std::optional<Version> ReadVersionResource(const ByteSource& file);

}  // namespace sarnevo::platform
