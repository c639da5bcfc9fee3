#include "camera/CGroup1CameraProperties.h"

#include <array>
#include <string_view>

#include "camera/CgiText.h"
#include "camera/ReplyBody.h"
#include "device/DecimalText.h"

namespace sarnevo {

namespace {

constexpr const char* kModel = "Kolvex P-400/413/423/426/428/463/463DW/1401";
constexpr char kValueStop = '&';

struct Size {
  u32 id;
  u16 width;
  u16 heightPAL;
  u16 heightNTSC;
};
constexpr std::array kSizes = {
    Size{1, 176, 144, 112},
    Size{2, 352, 288, 240},
    Size{4, 720, 576, 480},
};

// Milliseconds; the last one is beyond PAL's 25 frames a second.
constexpr std::array<u32, 11> kFrameIntervals = {333, 250, 200, 166, 142, 125, 100, 83, 66, 40, 33};

u32 ShortestInterval(u32 isNTSC) { return 1000 / (isNTSC != 0 ? 30 : 25); }

u32 CountOf(std::string_view word, std::string_view text) {
  u32 count = 0;
  for (std::size_t pos = text.find(word); pos != text.npos; pos = text.find(word, pos + word.size())) {
    ++count;
  }
  return count;
}

}  // namespace

bool CGroup1CameraProperties::ReadProperties(Web::HttpRequest* request, CCameraProperties* properties,
                                             u32* level) {
  properties->SetVendor("Kolvex");
  properties->SetModel(kModel);
  // A reply that doesn't come leaves its fields empty.
  std::vector<u8> body;
  const auto ask = [&](const char* path) {
    *level = QueryFailureOther;
    return Fetch(*request, path, body, *level);
  };
  if (ask("comport.cgi?action=retrieve")) {
    const auto device = ValueIn(TextOf(body), "serial_device", kValueStop);
    if (device && ParseDecimal(*device) != 0) {
      properties->SetPTZ(true);
    }
  }
  if (ask("multimedia.cgi?action=retrieve") && ValueIn(TextOf(body), "aformat", kValueStop)) {
    properties->SetAudio(true);  // whatever it is
  }
  if (ask("gpio.cgi?action=retrieve")) {
    properties->SetInputCount(CountOf("gpio", TextOf(body)));
    properties->SetOutputCount(CountOf("relay", TextOf(body)));
  }
  if (ask("channel.cgi?action=retrieve&ch_id=all")) {
    properties->SetChannelCount(1);  // whatever it answers
  }
  // The last reply decides whether the camera was read.
  const bool answered = ask("network.cgi?action=retrieve");
  // The error is the thread's last one, so nothing may come between the read and this.
  const bool refused = Web::LastHttpError() == Web::HttpError::LoginFailure;
  const auto address = answered ? ValueIn(TextOf(body), "HWADDR0", kValueStop) : std::nullopt;
  if (address) {
    macAddress_ = RemoveCharacters(*address, ":");
  } else if (refused) {
    *level = QueryFailureLogin;
  }

  properties->AddFormat(kFormat2);
  properties->AddFormat(kFormat4);
  for (const Size& size : kSizes) {
    CResolutionInfo resolution;
    resolution.SetResolutionId(size.id);
    resolution.SetSize(size.width, isNTSC_ != 0 ? size.heightNTSC : size.heightPAL);
    resolution.FillFrameIntervals(ShortestInterval(isNTSC_), isNTSC_);
    properties->AddResolution(resolution);
  }
  return address.has_value();
}

bool CGroup1CameraProperties::PublishCapabilities(ipcapture::IIPCapabilities* capabilities, u32 isNTSC,
                                                  Web::HttpRequest* request) {
  const std::array<Setting, 6> settings = {{
      {SettingMaxQualityJPEG, "MaxQualityJPEG", "16", 0},
      {SettingMinQualityJPEG, "MinQualityJPEG", "4", 0},
      {SettingMaxQualityMPEG, "MaxQualityMPEG", "3000", 0},
      {SettingMinQualityMPEG, "MinQualityMPEG", "256", 0},
      {SettingBitrateList, "BitrateList", "256,512,768,1000,1500,2000,3000,e", 1},
      {SettingMAC, "MAC", macAddress_.c_str(), 1},
  }};
  const std::size_t intervals = kFrameIntervals.size() - (isNTSC == 1 ? 0 : 1);
  return Publish(capabilities, isNTSC, request,
                 {"1", ShortestInterval(isNTSC), std::span(kFrameIntervals).first(intervals), settings});
}

}  // namespace sarnevo
