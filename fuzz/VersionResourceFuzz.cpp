#include <algorithm>
#include <array>

#include "FuzzTarget.h"
#include "platform/VersionResource.h"

namespace {

class Input : public sarnevo::platform::ByteSource {
 public:
  explicit Input(kolvex_fuzz::Bytes bytes) : bytes_(bytes) {}

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    // Reads are bounded whatever the file says.
    kolvex_fuzz::Check(into.size() <= (std::size_t{1} << 20) && ++reads_ < 100'000, "bounded work");
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

}  // namespace

FUZZ_TARGET(VersionResource) {
  const auto version = sarnevo::platform::ReadVersionResource(Input(input));
  if (!version) {
    return;
  }
  // Two little-endian words of two halves each, the upper half first.
  std::array<std::uint8_t, 8> wanted{};
  std::size_t at = 0;
  for (const unsigned half : {version->minor, version->major, version->revision, version->build}) {
    wanted[at++] = static_cast<std::uint8_t>(half);
    wanted[at++] = static_cast<std::uint8_t>(half >> 8);
  }
  kolvex_fuzz::Check(std::search(input.begin(), input.end(), wanted.begin(), wanted.end()) != input.end(),
                     "a version stands in the file");
}
