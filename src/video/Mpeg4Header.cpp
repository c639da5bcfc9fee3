#include "video/Mpeg4Header.h"

#include <algorithm>
#include <array>
#include <bit>

#include "video/BitReader.h"

namespace sarnevo {

namespace {

constexpr std::array<u8, 3> kPrefix{0x00, 0x00, 0x01};
constexpr std::size_t kStartCodeSize = kPrefix.size() + 1;

// Values of header fields, ISO/IEC 14496-2, 6.3.
constexpr u32 kVisualObjectTypeVideo = 1;
constexpr u32 kTypeFineGranularityScalable = 18;
constexpr u32 kExtendedAspectRatio = 15;
constexpr u32 kShapeRectangular = 0;

// What comes after the first start code of a stream, up to the one after it.
struct Section {
  u8 code = 0;
  std::span<const u8> body;
  std::span<const u8> rest;  // from the next start code on
};

std::span<const u8> FromStartCode(std::span<const u8> data) {
  return {std::search(data.begin(), data.end(), kPrefix.begin(), kPrefix.end()), data.end()};
}

std::optional<Section> NextSection(std::span<const u8> data) {
  const auto start = FromStartCode(data);
  if (start.size() < kStartCodeSize) {
    return std::nullopt;
  }
  const auto after = start.subspan(kStartCodeSize);
  const auto rest = FromStartCode(after);
  return Section{start[kPrefix.size()], after.first(after.size() - rest.size()), rest};
}

// VisualObject(), ISO/IEC 14496-2, 6.2.2.
bool IsVideo(std::span<const u8> body) {
  BitReader bits(body);
  if (bits.ReadFlag()) {  // is_visual_object_identifier
    bits.Skip(4 + 3);     // visual_object_verid, visual_object_priority
  }
  const u32 type = bits.Read(4);
  if (bits.ReadFlag()) {    // video_signal_type
    bits.Skip(3 + 1);       // video_format, video_range
    if (bits.ReadFlag()) {  // colour_description
      bits.Skip(8 + 8 + 8);
    }
  }
  return !bits.HasFailed() && type == kVisualObjectTypeVideo;
}

void SkipVbvParameters(BitReader& bits) {
  bits.Skip(15);  // first_half_bit_rate
  bits.Marker();
  bits.Skip(15);  // latter_half_bit_rate
  bits.Marker();
  bits.Skip(15);  // first_half_vbv_buffer_size
  bits.Marker();
  bits.Skip(3 + 11);  // latter_half_vbv_buffer_size, first_half_vbv_occupancy
  bits.Marker();
  bits.Skip(15);  // latter_half_vbv_occupancy
  bits.Marker();
}

void SkipTiming(BitReader& bits) {
  bits.Marker();
  const u32 resolution = bits.Read(16);  // vop_time_increment_resolution, ticks per second
  if (resolution == 0) {
    bits.Fail();
  }
  bits.Marker();
  if (bits.ReadFlag()) {  // fixed_vop_rate
    // fixed_vop_time_increment takes as many bits as hold any value below the resolution, at least one.
    bits.Skip(std::max<std::size_t>(1, static_cast<std::size_t>(std::bit_width(resolution - 1))));
  }
}

// VideoObjectLayer(), ISO/IEC 14496-2, 6.2.3, up to the height.
std::optional<PictureSize> ParseVideoObjectLayer(std::span<const u8> body) {
  BitReader bits(body);
  bits.Skip(1);  // random_accessible_vol
  if (bits.Read(8) == kTypeFineGranularityScalable) {
    return std::nullopt;  // an enhancement without a picture of its own
  }
  if (bits.ReadFlag()) {  // is_object_layer_identifier
    bits.Skip(4 + 3);     // video_object_layer_verid, video_object_layer_priority
  }
  if (bits.Read(4) == kExtendedAspectRatio) {
    bits.Skip(8 + 8);  // par_width, par_height
  }
  if (bits.ReadFlag()) {    // vol_control_parameters
    bits.Skip(2 + 1);       // chroma_format, low_delay
    if (bits.ReadFlag()) {  // vbv_parameters
      SkipVbvParameters(bits);
    }
  }
  if (bits.Read(2) != kShapeRectangular) {
    return std::nullopt;
  }
  SkipTiming(bits);
  bits.Marker();
  const u32 width = bits.Read(13);
  bits.Marker();
  const u32 height = bits.Read(13);
  bits.Marker();
  if (bits.HasFailed() || width == 0 || height == 0) {
    return std::nullopt;
  }
  return PictureSize{width, height};
}

constexpr bool Is(u8 code, Mpeg4StartCode wanted) { return code == static_cast<u8>(wanted); }

constexpr bool IsVideoObjectLayer(u8 code) {
  return code >= static_cast<u8>(Mpeg4StartCode::VideoObjectLayerFirst) &&
         code <= static_cast<u8>(Mpeg4StartCode::VideoObjectLayerLast);
}

}  // namespace

bool BeginsWith(std::span<const u8> data, Mpeg4StartCode code) noexcept {
  return data.size() >= kStartCodeSize && std::equal(kPrefix.begin(), kPrefix.end(), data.begin()) &&
         Is(data[kPrefix.size()], code);
}

std::optional<PictureSize> ParseMpeg4Header(std::span<const u8> frame) noexcept {
  if (!BeginsWith(frame, Mpeg4StartCode::VisualObjectSequence)) {
    return std::nullopt;
  }
  bool visualObjectSeen = false;
  for (auto section = NextSection(frame.subspan(kStartCodeSize)); section;
       section = NextSection(section->rest)) {
    if (Is(section->code, Mpeg4StartCode::VisualObject)) {
      if (!IsVideo(section->body)) {
        return std::nullopt;
      }
      visualObjectSeen = true;
    } else if (IsVideoObjectLayer(section->code)) {
      return visualObjectSeen ? ParseVideoObjectLayer(section->body) : std::nullopt;
    } else if (Is(section->code, Mpeg4StartCode::VideoObjectPlane)) {
      return std::nullopt;  // the pictures begin, and their headers are missing
    }
  }
  return std::nullopt;
}

}  // namespace sarnevo
