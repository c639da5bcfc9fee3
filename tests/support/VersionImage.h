#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/ProductVersion.h"

namespace sarnevo::platform {

/// The product version in an Image until it is changed.
inline constexpr Version kVersion{5, 11, 300, 40'000};

// A library file with nothing in it but headers, two sections and one version resource. Where the parts
// lie in it:
inline constexpr std::size_t kPe = 0x40;
inline constexpr std::size_t kOptional = kPe + 24;
inline constexpr std::size_t kRaw = 0x200;  // the resource section
inline constexpr std::size_t kTypes = kRaw;
inline constexpr std::size_t kNames = kRaw + 32;
inline constexpr std::size_t kLanguages = kRaw + 56;
inline constexpr std::size_t kData = kRaw + 80;
inline constexpr std::size_t kInfo = kRaw + 96;
inline constexpr std::size_t kFixed = kInfo + 40;
inline constexpr std::size_t kSize = kInfo + 92;
inline constexpr std::uint32_t kAddress = 0x3000;  // of the resource section
inline constexpr std::uint32_t kDirectory = 0x8000'0000u;

/// A library file that VersionResource reads, to be changed at will.
class Image : public ByteSource {
 public:
  explicit Image(bool wide) : wide_(wide), bytes_(kSize) {
    Put16(0, 0x5A4D).Put32(0x3C, kPe);
    Put32(kPe, 0x4550).Put16(kPe + 6, 2).Put16(kPe + 20, OptionalBytes());
    Put16(kOptional, wide ? 0x20B : 0x10B).Put32(Directories() - 4, 16).Put32(Directories() + 16, kAddress);
    const std::size_t sections = Sections();
    Put32(sections + 12, 0x1000).Put32(sections + 16, 0x200).Put32(sections + 20, 0x40);
    Put32(sections + 52, kAddress).Put32(sections + 56, kSize - kRaw).Put32(sections + 60, kRaw);
    Put16(kTypes + 14, 2).Put32(kTypes + 16, 3).Put32(kTypes + 24, 16).Put32(kTypes + 28, kDirectory | 32);
    Put16(kNames + 14, 1).Put32(kNames + 16, 1).Put32(kNames + 20, kDirectory | 56);
    Put16(kLanguages + 14, 1).Put32(kLanguages + 16, 0x409).Put32(kLanguages + 20, 80);
    Put32(kData, kAddress + 96).Put32(kData + 4, 92);
    Put16(kInfo, 92).Put16(kInfo + 2, 52);
    for (std::size_t i = 0; i < 15; ++i) {
      Put16(kInfo + 6 + 2 * i, "VS_VERSION_INFO"[i]);
    }
    Put32(kFixed, 0xFEEF'04BD).Put32(kFixed + 8, 0x0001'0002).Put32(kFixed + 12, 0x0003'0004);
    Put16(kFixed + 18, kVersion.major).Put16(kFixed + 16, kVersion.minor);
    Put16(kFixed + 22, kVersion.build).Put16(kFixed + 20, kVersion.revision);
  }

  std::uint16_t OptionalBytes() const { return wide_ ? 240 : 224; }
  std::size_t Directories() const { return kOptional + (wide_ ? 112 : 96); }
  std::size_t Sections() const { return kOptional + OptionalBytes(); }
  const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
  void Cut(std::size_t length) { bytes_.resize(length); }

  Image& Put16(std::size_t at, std::uint32_t value) {
    bytes_.at(at) = static_cast<std::uint8_t>(value);
    bytes_.at(at + 1) = static_cast<std::uint8_t>(value >> 8);
    return *this;
  }
  Image& Put32(std::size_t at, std::uint32_t value) { return Put16(at, value).Put16(at + 2, value >> 16); }

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override {
    if (offset > bytes_.size() || bytes_.size() - offset < into.size()) {
      return false;
    }
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), into.size(), into.begin());
    return true;
  }

 private:
  bool wide_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace sarnevo::platform
