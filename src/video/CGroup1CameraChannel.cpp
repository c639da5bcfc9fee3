#include "video/CGroup1CameraChannel.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "camera/CameraRequest.h"
#include "camera/ReplyBody.h"
#include "device/Device.h"
#include "http/RequestInterrupt.h"

namespace sarnevo {

namespace {

struct Resolution {
  u32 maxWidth;
  u32 maxHeight;
  const char* text;
};

// The first row that the picture fits in.
constexpr std::array kResolutions{
    Resolution{176, 144, "&resolution=qcif"},
    Resolution{352, 288, "&resolution=cif"},
    Resolution{720, 576, "&resolution=d1"},
};
// The camera has nothing larger than D1; what asks for more gets the size that every model has.
constexpr const char* kLargerResolution = "&resolution=cif";

const char* ResolutionText(const StreamFormat& format) {
  for (const Resolution& row : kResolutions) {
    if (format.width <= row.maxWidth && format.height <= row.maxHeight) {
      return row.text;
    }
  }
  return kLargerResolution;
}

// The camera's scale of constant quality: a smaller value is a better picture.
std::int64_t ConstantQuality(u32 quality, const CQualitySettings& limits) {
  const std::int64_t range = std::int64_t{limits.maxQualityJPEG} - limits.minQualityJPEG;
  return limits.minQualityJPEG + (100 - std::int64_t{quality}) * range / 100 + 1;
}

// The entry of the camera's list that is nearest to the wanted rate. A tie goes up.
std::optional<i32> NearestBitrate(std::int64_t rate, const std::vector<i32>& bitrates) {
  for (std::size_t i = 1; i < bitrates.size(); ++i) {
    const std::int64_t lower = bitrates[i - 1];
    const std::int64_t upper = bitrates[i];
    if (lower <= rate && rate <= upper) {
      return bitrates[rate - lower < upper - rate ? i - 1 : i];
    }
  }
  return std::nullopt;
}

std::optional<i32> TargetRate(u32 quality, const CQualitySettings& limits) {
  const std::int64_t range = std::int64_t{limits.maxQualityMPEG} - limits.minQualityMPEG;
  const std::int64_t rate = limits.minQualityMPEG + range * quality / 100;
  // Not std::clamp, whose behaviour is undefined when a host has its limits the wrong way round.
  const std::int64_t held =
      std::max<std::int64_t>(std::min<std::int64_t>(rate, limits.maxQualityMPEG), limits.minQualityMPEG);
  return NearestBitrate(held, limits.bitrates);
}

std::optional<std::string> CompressionText(const StreamFormat& format, const CQualitySettings& limits) {
  if (format.codec == CodecMJPEG) {
    return "&const_qu=" + std::to_string(ConstantQuality(format.quality, limits));
  }
  if (format.codec == CodecMPEG4) {
    if (const auto rate = TargetRate(format.quality, limits)) {
      return "&targetrate=" + std::to_string(*rate);
    }
  }
  return std::nullopt;
}

std::string RateText(const StreamFormat& format, const CQualitySettings& limits) {
  if (format.frameInterval == 0) {
    return {};
  }
  const std::string fps = std::to_string(static_cast<u32>(1000.0 / format.frameInterval + 0.5));
  if (format.codec == CodecMJPEG) {
    return "&fps=" + fps + "&gopsize=1&mode=mjpeg&sequence=i";
  }
  // A key frame each second.
  return "&fps=" + fps + "&gopsize=" + fps + "&peakrate=" + std::to_string(limits.maxQualityMPEG) +
         "&const_qu=0&mode=mpeg4&sequence=ip";
}

// In as many pieces as it comes in, and whatever comes after it.
bool BeginsWithSuccess(Web::HttpRequest& request) {
  constexpr std::string_view kSuccess = "ret=200";
  std::vector<u8> begin;
  ReadBody(request, kSuccess.size(), kReadBlockBytes, begin);
  return std::ranges::equal(begin, kSuccess);
}

}  // namespace

std::optional<std::string> BuildGroup1Request(const StreamFormat& format, const CQualitySettings& quality) {
  const auto compression = CompressionText(format, quality);
  if (!compression) {
    return std::nullopt;
  }
  std::string request = "/multimedia.cgi?action=apply";
  request += format.videoStandard != VideoStandardPAL ? "&tv_standard=NTSC" : "&tv_standard=PAL";
  request += ResolutionText(format);
  request += *compression;
  request += RateText(format, quality);
  return request;
}

u32 CGroup1CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  const auto text = BuildGroup1Request(Format(), Driver()->GetQualitySettings());
  CameraRequest request(*Driver(), request_policy::kConfiguration);
  const Web::RequestInterrupt interrupt(request);
  configured_ = text && request.Send("GET", text->c_str(), false) && BeginsWithSuccess(request) ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
