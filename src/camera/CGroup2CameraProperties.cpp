#include "camera/CGroup2CameraProperties.h"

#include <algorithm>
#include <array>
#include <span>

#include "camera/ReplyBody.h"
#include "device/DecimalText.h"
#include "http/HttpStatus.h"

namespace sarnevo {

namespace {

constexpr char kValueStop = '<';

struct Size {
  u16 width;
  u16 height;
};
constexpr std::array kVga = {Size{640, 480}, Size{320, 240}, Size{160, 120}};
constexpr std::array kMegapixel = {Size{640, 480}, Size{320, 240}, Size{160, 120}, Size{1280, 1024}};
constexpr std::array kSizesPAL = {Size{176, 144}, Size{352, 288}, Size{704, 576}, Size{720, 576}};
constexpr std::array kSizesNTSC = {Size{176, 120}, Size{352, 240}, Size{704, 480}, Size{720, 480}};

struct Model {
  u8 cameraType;
  const char* name;
  bool hasPTZ;
  u32 inputCount;
  u32 outputCount;
  std::span<const Size> sizesPAL;
  std::span<const Size> sizesNTSC;
};
const std::array kModels = {
    Model{71, "Kolvex P-405", false, 0, 0, kVga, kVga},
    Model{68, "Kolvex P-405M", false, 0, 0, kMegapixel, kMegapixel},
    Model{81, "Kolvex P-410", true, 1, 1, kSizesPAL, kSizesNTSC},
    Model{67, "Kolvex P-412", false, 1, 1, kSizesPAL, kSizesNTSC},
};

// All in milliseconds. The megapixel sensor is slower than the video standard.
constexpr u16 kMegapixelWidth = 1280;
constexpr std::array<u32, 8> kMegapixelIntervals = {333, 250, 200, 166, 142, 125, 111, 100};
constexpr std::array<u32, 5> kIntervalsPAL = {200, 100, 66, 50, 40};
constexpr std::array<u32, 6> kIntervalsNTSC = {200, 100, 66, 50, 40, 33};
constexpr u32 kMinFrameInterval = 40;
constexpr std::array<u32, 9> kPublishedPAL = {200, 166, 142, 125, 111, 100, 66, 50, 40};
constexpr std::array<u32, 9> kPublishedNTSC = {200, 166, 142, 125, 111, 100, 66, 40, 33};

std::span<const u32> IntervalsOf(const Size& size, u32 isNTSC) {
  if (size.width == kMegapixelWidth) {
    return kMegapixelIntervals;
  }
  return isNTSC != 0 ? std::span<const u32>(kIntervalsNTSC) : std::span<const u32>(kIntervalsPAL);
}

// By the low 8 bits of the camera's number.
const Model* FindModel(std::string_view number) {
  const auto type = static_cast<u8>(static_cast<u32>(ParseDecimal(number)) & 0xFF);
  const auto model =
      std::find_if(kModels.begin(), kModels.end(), [type](const Model& m) { return m.cameraType == type; });
  return model != kModels.end() ? &*model : nullptr;
}

void Fill(CCameraProperties& properties, const Model& model, u32 isNTSC) {
  properties.SetModel(model.name);
  properties.SetChannelCount(1);
  properties.SetAudio(true);
  properties.SetPTZ(model.hasPTZ);
  properties.SetInputCount(model.inputCount);
  properties.SetOutputCount(model.outputCount);
  for (const Size& size : isNTSC != 0 ? model.sizesNTSC : model.sizesPAL) {
    CResolutionInfo resolution;
    resolution.SetMinFrameInterval(kMinFrameInterval);
    resolution.SetSize(size.width, size.height);
    for (const u32 interval : IntervalsOf(size, isNTSC)) {
      resolution.AddFrameInterval(interval, 0);
    }
    properties.AddResolution(resolution);
  }
}

}  // namespace

bool CGroup2CameraProperties::ReadProperties(Web::HttpRequest* request, CCameraProperties* properties,
                                             u32* level) {
  // Whether the credentials are right; nothing else about this answer matters.
  if (request->Send("GET", "GetMAC.cgi", false) && request->GetStatusCode() == Web::kStatusUnauthorized) {
    *level = QueryFailureLogin;
    return false;
  }
  properties->SetVendor("Kolvex");
  *level = QueryFailureOther;
  std::vector<u8> reply;
  if (!Fetch(*request, "GetCameraType.cgi", reply, *level)) {
    return false;
  }
  const auto number = ValueIn(TextOf(reply), "CameraType", kValueStop);
  const Model* const model = number ? FindModel(*number) : nullptr;
  if (model == nullptr) {
    return false;
  }
  Fill(*properties, *model, isNTSC_);
  properties->AddFormat(kFormat2);
  properties->AddFormat(kFormat4);
  return true;
}

bool CGroup2CameraProperties::PublishCapabilities(ipcapture::IIPCapabilities* capabilities, u32 isNTSC,
                                                  Web::HttpRequest* request) {
  return Publish(capabilities, isNTSC, request,
                 {"2", std::nullopt, isNTSC == 1 ? kPublishedNTSC : kPublishedPAL, {}});
}

}  // namespace sarnevo
