#include "platform/ProductVersion.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include "platform/HostProcess.h"

namespace sarnevo::platform {

namespace {

constexpr std::uint32_t kResourceDirectoryIndex = 2;  // among the data directories
constexpr std::size_t kDataDirectoryBytes = 8;
constexpr std::size_t kSectionHeaderBytes = 40;
constexpr std::size_t kDirectoryBytes = 16;
constexpr std::size_t kEntryBytes = 8;
constexpr std::uint32_t kHighBit = 0x8000'0000u;  // an entry with a name, or one that leads to a directory
// Ids of the resource tree's first two levels; the third is the language, and any will do.
constexpr std::uint32_t kVersionType = 16;
constexpr std::uint32_t kVersionName = 1;
// A library has some tens of resources; more than this in one directory is a trap.
constexpr std::uint32_t kMaxEntries = 4096;

// VS_VERSIONINFO: three 16-bit words, the key in UTF-16 with its terminator, padding to 32 bits, and then
// VS_FIXEDFILEINFO.
constexpr char kVersionKey[] = "VS_VERSION_INFO";
constexpr std::size_t kKeyOffset = 6;
constexpr std::size_t kFixedInfoOffset = 40;
constexpr std::size_t kFixedInfoBytes = 52;
constexpr std::size_t kVersionBytes = kFixedInfoOffset + kFixedInfoBytes;
constexpr std::uint32_t kFixedInfoSignature = 0xFEEF'04BDu;
constexpr std::size_t kProductVersionHigh = kFixedInfoOffset + 16;
constexpr std::size_t kProductVersionLow = kFixedInfoOffset + 20;

// A structure as it lies in the file; all numbers are little-endian.
template <std::size_t Size>
class Record {
 public:
  static std::optional<Record> Read(const ByteSource& file, std::uint64_t offset) {
    Record record;
    return file.Read(offset, record.bytes_) ? std::optional(record) : std::nullopt;
  }
  std::uint16_t U16(std::size_t at) const {
    return static_cast<std::uint16_t>(bytes_[at] | static_cast<std::uint16_t>(bytes_[at + 1]) << 8);
  }
  std::uint32_t U32(std::size_t at) const { return U16(at) | static_cast<std::uint32_t>(U16(at + 2)) << 16; }

 private:
  std::array<std::uint8_t, Size> bytes_{};
};

// A stretch of the file.
struct Range {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
};

struct Image {
  std::uint64_t sectionTable = 0;
  std::uint32_t sectionCount = 0;
  std::uint32_t resourceAddress = 0;  // relative to the image's base
};

// Headers, from the start of the file to the section table.
std::optional<Image> ReadHeaders(const ByteSource& file) {
  constexpr std::uint16_t kDosMagic = 0x5A4D;          // "MZ"
  constexpr std::uint32_t kPeSignature = 0x0000'4550;  // "PE\0\0"
  constexpr std::uint16_t kMagic32 = 0x10B;
  constexpr std::uint16_t kMagic64 = 0x20B;

  const auto dos = Record<64>::Read(file, 0);
  if (!dos || dos->U16(0) != kDosMagic) {
    return std::nullopt;
  }
  const std::uint64_t peOffset = dos->U32(0x3C);
  const auto pe = Record<24>::Read(file, peOffset);
  if (!pe || pe->U32(0) != kPeSignature) {
    return std::nullopt;
  }
  const std::uint16_t sectionCount = pe->U16(6);
  const std::uint16_t optionalBytes = pe->U16(20);
  const std::uint64_t optionalOffset = peOffset + 24;
  const auto magic = Record<2>::Read(file, optionalOffset);
  if (!magic || (magic->U16(0) != kMagic32 && magic->U16(0) != kMagic64)) {
    return std::nullopt;
  }
  const std::size_t directories = magic->U16(0) == kMagic32 ? 96 : 112;
  const std::size_t wanted = directories + kResourceDirectoryIndex * kDataDirectoryBytes;
  const auto directoryCount = Record<4>::Read(file, optionalOffset + directories - 4);
  const auto resources = Record<kDataDirectoryBytes>::Read(file, optionalOffset + wanted);
  if (optionalBytes < wanted + kDataDirectoryBytes || !directoryCount ||
      directoryCount->U32(0) <= kResourceDirectoryIndex || !resources || resources->U32(0) == 0) {
    return std::nullopt;
  }
  return Image{optionalOffset + optionalBytes, sectionCount, resources->U32(0)};
}

// Where an address of the loaded image lies in the file, with what is left of its section after it.
std::optional<Range> Locate(const ByteSource& file, const Image& image, std::uint32_t address) {
  for (std::uint32_t i = 0; i < image.sectionCount; ++i) {
    const auto section = Record<kSectionHeaderBytes>::Read(file, image.sectionTable + i * kSectionHeaderBytes);
    if (!section) {
      return std::nullopt;
    }
    const std::uint32_t sectionAddress = section->U32(12);
    const std::uint32_t rawBytes = section->U32(16);
    if (address >= sectionAddress && address - sectionAddress < rawBytes) {
      const std::uint32_t inside = address - sectionAddress;
      return Range{std::uint64_t{section->U32(20)} + inside, rawBytes - inside};
    }
  }
  return std::nullopt;
}

template <std::size_t Size>
std::optional<Record<Size>> ReadWithin(const ByteSource& file, const Range& range, std::uint32_t at) {
  if (at > range.size || range.size - at < Size) {
    return std::nullopt;
  }
  return Record<Size>::Read(file, range.offset + at);
}

// What the entry with the given id, or the first entry without one, of the directory at `at` leads to.
// Entries with a name come before those with an id.
std::optional<std::uint32_t> FindEntry(const ByteSource& file, const Range& resources, std::uint32_t at,
                                       std::optional<std::uint32_t> id) {
  const auto directory = ReadWithin<kDirectoryBytes>(file, resources, at);
  if (!directory) {
    return std::nullopt;
  }
  const std::uint32_t count = std::uint32_t{directory->U16(12)} + directory->U16(14);
  for (std::uint32_t i = 0; i < std::min(count, kMaxEntries); ++i) {
    const std::uint32_t place = at + static_cast<std::uint32_t>(kDirectoryBytes + i * kEntryBytes);
    const auto entry = ReadWithin<kEntryBytes>(file, resources, place);
    if (!entry) {
      return std::nullopt;
    }
    if (!id || entry->U32(0) == *id) {
      return entry->U32(4);
    }
  }
  return std::nullopt;
}

// Walks type, name and language down to the resource. Three steps whatever the directories say, so that
// one that leads back to itself is no trap.
std::optional<Range> FindVersionData(const ByteSource& file, const Image& image) {
  const auto resources = Locate(file, image, image.resourceAddress);
  if (!resources) {
    return std::nullopt;
  }
  std::uint32_t at = 0;
  for (const auto id : {std::optional(kVersionType), std::optional(kVersionName)}) {
    const auto next = FindEntry(file, *resources, at, id);
    if (!next || (*next & kHighBit) == 0) {
      return std::nullopt;
    }
    at = *next & ~kHighBit;
  }
  const auto leaf = FindEntry(file, *resources, at, std::nullopt);
  if (!leaf || (*leaf & kHighBit) != 0) {
    return std::nullopt;
  }
  const auto data = ReadWithin<16>(file, *resources, *leaf);
  if (!data) {
    return std::nullopt;
  }
  // The data has an address of its own and may lie in another section.
  auto range = Locate(file, image, data->U32(0));
  if (!range || data->U32(4) > range->size) {
    return std::nullopt;
  }
  range->size = data->U32(4);
  return range;
}

bool HasVersionKey(const Record<kVersionBytes>& info) {
  for (std::size_t i = 0; i < sizeof(kVersionKey); ++i) {
    if (info.U16(kKeyOffset + 2 * i) != static_cast<unsigned char>(kVersionKey[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<Version> ReadVersionResource(const ByteSource& file) {
  const auto image = ReadHeaders(file);
  const auto range = image ? FindVersionData(file, *image) : std::nullopt;
  const auto info = range ? ReadWithin<kVersionBytes>(file, *range, 0) : std::nullopt;
  if (!info || info->U16(0) < kVersionBytes || info->U16(0) > range->size || info->U16(2) < kFixedInfoBytes ||
      !HasVersionKey(*info) || info->U32(kFixedInfoOffset) != kFixedInfoSignature) {
    return std::nullopt;
  }
  return Version{info->U16(kProductVersionHigh + 2), info->U16(kProductVersionHigh),
                 info->U16(kProductVersionLow + 2), info->U16(kProductVersionLow)};
}

// The file is read in small pieces: a few headers are wanted, not its megabytes. Nothing is mapped, since a file that
// shrinks under a mapping ends the process.
std::optional<Version> ReadProductVersion(std::string_view name) {
  const auto folder = HostExecutableFolder();
  File file;
  if (!folder || file.Open((*folder + '/').append(name), File::Access::Read, File::IfMissing::Fail) !=
                     File::OpenResult::Opened) {
    return std::nullopt;
  }
  return ReadVersionResource(file);
}

}  // namespace sarnevo::platform
