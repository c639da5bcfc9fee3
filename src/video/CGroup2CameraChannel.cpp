#include "video/CGroup2CameraChannel.h"

#include <algorithm>
#include <array>

#include "camera/CameraRequest.h"
#include "device/Device.h"
#include "http/RequestInterrupt.h"

namespace sarnevo {

namespace {

struct Resolution {
  u32 width;
  u32 height;
  const char* text;
};

constexpr std::array kResolutions{
    Resolution{1280, 1024, "&Resolution=sxga"}, Resolution{640, 480, "&Resolution=vga"},
    Resolution{320, 240, "&Resolution=qvga"},   Resolution{160, 120, "&Resolution=qqvga"},
    Resolution{720, 480, "&Resolution=d1"},     Resolution{720, 576, "&Resolution=d1"},
    Resolution{704, 480, "&Resolution=vga"},  // so the firmware calls it, not d1
    Resolution{704, 576, "&Resolution=vga"},    Resolution{352, 240, "&Resolution=cif"},
    Resolution{352, 288, "&Resolution=cif"},    Resolution{176, 120, "&Resolution=qcif"},
    Resolution{176, 144, "&Resolution=qcif"},
};

// By steps of 10 percentage points, from 10 on.
constexpr std::array kBitrates{64, 96, 128, 192, 256, 320, 384, 448, 512, 576};

constexpr u32 kLargestWidth = 1280;
constexpr u32 kLargestHeight = 1024;
constexpr u32 kLargestMaxFps = 10;  // the sensor gives no more at its full size

std::string ResolutionText(const StreamFormat& format) {
  const auto* const row = std::ranges::find_if(kResolutions, [&](const Resolution& candidate) {
    return candidate.width == format.width && candidate.height == format.height;
  });
  return row != kResolutions.end() ? row->text : std::string();
}

std::string RateText(const StreamFormat& format) {
  if (format.frameInterval == 0) {
    return {};
  }
  u32 fps = 1000 / format.frameInterval;
  if (format.width == kLargestWidth && format.height == kLargestHeight) {
    fps = std::min(fps, kLargestMaxFps);
  }
  return "&Fps=" + std::to_string(fps);
}

std::string CodecText(const StreamFormat& format) {
  if (format.codec == CodecMJPEG) {
    const u32 level = std::clamp(format.quality / 20 + 1, 1U, 5U);
    return "&Mode=mjpeg&Jpeg_Quality=" + std::to_string(level);
  }
  if (format.codec == CodecMPEG4) {
    const u32 tens = std::clamp(format.quality / 10, 1U, static_cast<u32>(kBitrates.size()));
    return "&Mode=mpeg4&Compression_Type=0&Bitrate=" + std::to_string(kBitrates[tens - 1]) + "&GOPSelect=1";
  }
  return {};
}

}  // namespace

std::string BuildGroup2Request(const StreamFormat& format) {
  std::string request = "/SetMultimedia.cgi?CH=0";
  request += ResolutionText(format);
  request += RateText(format);
  request += format.videoStandard != VideoStandardPAL ? "&Format=NTSC" : "&Format=PAL";
  request += CodecText(format);
  request += "&Stream_Mode=0&Audio=1";
  return request;
}

u32 CGroup2CameraChannel::ConfigureCamera() {
  if (Driver() == nullptr) {
    return 0;
  }
  CameraRequest request(*Driver(), request_policy::kConfiguration);
  const Web::RequestInterrupt interrupt(request);
  configured_ = request.Send("GET", BuildGroup2Request(Format()).c_str(), false) ? 1 : 0;
  return configured_;
}

}  // namespace sarnevo
