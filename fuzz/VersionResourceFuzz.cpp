#include <algorithm>
#include <string_view>

#include "FuzzTarget.h"
#include "platform/ProductVersion.h"

namespace {

using kolvex_fuzz::Check;

class Input : public sarnevo::platform::ByteSource {
 public:
  explicit Input(kolvex_fuzz::Bytes bytes) : bytes_(bytes) {}

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    // Reads are bounded whatever the file says.
    Check(into.size() <= (std::size_t{1} << 20) && ++reads_ < 100'000, "bounded work");
    if (offset > bytes_.size() || into.size() > bytes_.size() - offset) {
      return false;
    }
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), into.size(), into.begin());
    return true;
  }

 private:
  const kolvex_fuzz::Bytes bytes_;
  mutable int reads_ = 0;
};

// "VS_VERSION_INFO" with its end, in UTF-16.
constexpr std::string_view kKey{"V\0S\0_\0V\0E\0R\0S\0I\0O\0N\0_\0I\0N\0F\0O\0\0\0", 32};

// A little-endian number; 0 where the input has ended.
std::uint32_t U(kolvex_fuzz::Bytes input, std::size_t at, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = size; i-- > 0 && at + size <= input.size();) {
    value = value << 8 | input[at + i];
  }
  return value;
}

}  // namespace

FUZZ_TARGET(VersionResource) {
  const auto version = sarnevo::platform::ReadVersionResource(Input(input));
  if (!version) {
    return;
  }
  Check(U(input, 0, 2) == 0x5A4D && U(input, U(input, 0x3C, 4), 4) == 0x4550, "it is an executable");
  Check((U(input, U(input, 0x3C, 4) + 24, 2) | 0x300) == 0x30B, "of one of the two forms");
  const std::uint32_t high = std::uint32_t{version->major} << 16 | version->minor;
  const std::uint32_t low = std::uint32_t{version->build} << 16 | version->revision;
  bool found = false;
  for (std::size_t at = 0; at + 92 <= input.size() && !found; ++at) {
    found = U(input, at, 2) >= 92 && U(input, at + 2, 2) >= 52 &&
            std::equal(kKey.begin(), kKey.end(), input.begin() + static_cast<std::ptrdiff_t>(at + 6)) &&
            U(input, at + 40, 4) == 0xFEEF'04BD && U(input, at + 56, 4) == high && U(input, at + 60, 4) == low;
  }
  Check(found, "a version is in the file, in a whole version resource");
}
