#include "camera/CGroup1CameraProperties.h"

#include <array>
#include <string_view>

#include "camera/CgiReply.h"
#include "camera/CgiText.h"
#include "device/DecimalText.h"

namespace sarnevo {

namespace {

constexpr const char* kModel = "Kolvex P-400/413/423/426/428/463/463DW/1401";
constexpr u32 kStatusOk = 200;
constexpr u32 kStatusUnauthorized = 401;
constexpr char kValueStop = '&';
constexpr std::size_t kValueBytes = 1024;

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

// The published one goes by the video standard alone.
u32 PublishedInterval(const CResolutionInfo&, u32 isNTSC) { return ShortestInterval(isNTSC); }

bool Fetch(Web::HttpRequest& request, const char* path, CgiReply& reply, u32& level) {
  const bool sent = request.Send("GET", path, false);
  if (!sent || request.GetStatusCode() != kStatusOk) {
    level = sent && request.GetStatusCode() == kStatusUnauthorized ? QueryFailureLogin : QueryFailureOther;
    return false;
  }
  return reply.ReadWhatIsReady(request);
}

u32 CountOf(std::string_view word, std::string_view text) {
  u32 count = 0;
  for (std::size_t pos = text.find(word); pos != text.npos; pos = text.find(word, pos + word.size())) {
    ++count;
  }
  return count;
}

void ReadPTZ(Web::HttpRequest& request, CCameraProperties& properties, u32& level) {
  CgiReply reply;
  std::array<char, kValueBytes> value{};
  level = QueryFailureOther;
  if (Fetch(request, "comport.cgi?action=retrieve", reply, level) &&
      ExtractCgiValue(reply.Text(), "serial_device", value, kValueStop) && ParseDecimal(value.data()) != 0) {
    properties.SetPTZ(true);
  }
}

void ReadAudio(Web::HttpRequest& request, CCameraProperties& properties, u32& level) {
  CgiReply reply;
  std::array<char, kValueBytes> value{};
  level = QueryFailureOther;
  if (Fetch(request, "multimedia.cgi?action=retrieve", reply, level) &&
      ExtractCgiValue(reply.Text(), "aformat", value, kValueStop)) {
    properties.SetAudio(true);
  }
}

void ReadInputsAndOutputs(Web::HttpRequest& request, CCameraProperties& properties, u32& level) {
  CgiReply reply;
  level = QueryFailureOther;
  if (Fetch(request, "gpio.cgi?action=retrieve", reply, level)) {
    properties.SetInputCount(CountOf("gpio", reply.Text()));
    properties.SetOutputCount(CountOf("relay", reply.Text()));
  }
}

void ReadChannels(Web::HttpRequest& request, CCameraProperties& properties, u32& level) {
  CgiReply reply;
  level = QueryFailureOther;
  if (Fetch(request, "channel.cgi?action=retrieve&ch_id=all", reply, level)) {
    properties.SetChannelCount(1);  // whatever it answers
  }
}

}  // namespace

bool CGroup1CameraProperties::ReadMacAddress(Web::HttpRequest& request, u32& level) {
  CgiReply reply;
  std::array<char, kValueBytes> value{};
  level = QueryFailureOther;
  if (!Fetch(request, "network.cgi?action=retrieve", reply, level) ||
      !ExtractCgiValue(reply.Text(), "HWADDR0", value, kValueStop)) {
    return false;
  }
  macAddress_ = RemoveCharacters(value.data(), ":");
  return true;
}

bool CGroup1CameraProperties::ReadProperties(Web::HttpRequest* request, CCameraProperties* properties,
                                             u32* level) {
  properties->SetVendor("Kolvex");
  ReadPTZ(*request, *properties, *level);
  properties->SetModel(kModel);
  ReadAudio(*request, *properties, *level);
  ReadInputsAndOutputs(*request, *properties, *level);
  ReadChannels(*request, *properties, *level);
  const bool read = ReadMacAddress(*request, *level);
  // The thread's own error value: nothing may come between it and the read.
  const bool refused = Web::LastHttpError() == Web::HttpError::LoginFailure;

  properties->AddFormat(2);
  properties->AddFormat(4);
  for (const Size& size : kSizes) {
    CResolutionInfo resolution;
    resolution.SetResolutionId(size.id);
    resolution.SetSize(size.width, isNTSC_ != 0 ? size.heightNTSC : size.heightPAL);
    resolution.FillFrameIntervals(ShortestInterval(isNTSC_), isNTSC_);
    properties->AddResolution(resolution);
  }
  if (!read && refused) {
    *level = QueryFailureLogin;
  }
  return read;
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
                 {"1", &PublishedInterval, std::span(kFrameIntervals).first(intervals), settings});
}

}  // namespace sarnevo
