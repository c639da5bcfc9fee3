#include "camera/CBaseKolvexCameraProperties.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "camera/CgiText.h"
#include "camera/ReplyBody.h"
#include "camera/RequestPolicy.h"
#include "http/HttpStatus.h"
#include "threads/HostAsk.h"

namespace sarnevo {

using namespace ipcapture;

namespace {

using Properties = CBaseKolvexCameraProperties;

constexpr u32 kStandardFrameInterval = 200;  // milliseconds
constexpr u32 kSlowest = 10'000;             // milliseconds
constexpr u32 kStandardQuality = 60;         // percent
constexpr std::array<u32, 10> kQualities = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
constexpr std::size_t kValueBytes = 1024;  // of one value, with its end

void PublishRecord(IIPCapabilities* capabilities, CCameraProperties& record) {
  const auto set = [capabilities](CapabilityId id, u32 value) {
    Tell(capabilities, &IIPCapabilities::SetCapability, id, value);
  };
  set(Capability11, 0);
  set(Capability12, 0);
  set(CapabilityChannels, record.GetChannelCount());
  if (record.GetInputCount() != 0) {
    set(CapabilityInputs, record.GetInputCount());
  }
  if (record.GetOutputCount() != 0) {
    set(CapabilityOutputs, record.GetOutputCount());
  }
  if (record.HasPTZ()) {
    set(CapabilityPTZ, 1);
  }
  if (record.HasAudio()) {
    set(CapabilityAudio, 1);
  }
  for (u32 format = record.GetFirstFormat(); format != 0; format = record.GetNextFormat()) {
    if (format == Properties::kFormat2) {
      set(CapabilityFormat2, 1);
    } else if (format == Properties::kFormat4) {
      set(CapabilityFormat4, 1);
    }
  }
}

u32 ShortestInterval(const CResolutionInfo& info) {
  u32 shortest = kSlowest;
  for (const u32 interval : info.FrameIntervals()) {
    shortest = std::min(shortest, interval);
  }
  return shortest;
}

void PublishResolutions(IIPCapabilities* capabilities, CCameraProperties& record,
                        const Properties::GroupValues& values) {
  for (const CResolutionInfo* info = record.GetFirstResolution(); info != nullptr;
       info = record.GetNextResolution()) {
    const u32 width = info->GetWidth();
    const u32 height = info->GetHeight();
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%ux%u", width, height);
    Tell(Ask(capabilities, &IIPCapabilities::AddResolutionEntry), &IIPResolutionEntry::SetResolution,
         text.data(), width, height, values.shortestInterval.value_or(ShortestInterval(*info)));
  }
}

void PublishConnection(IIPCapabilities* capabilities, const Web::HttpRequest& request) {
  const auto field = [capabilities](ConnectionField index) {
    return Ask(capabilities, &IIPCapabilities::GetConnectionField, index);
  };
  Tell(field(ConnectionFieldAddress), &IIPTextField::SetText, request.GetHost());
  std::array<char, 8> port{};
  std::snprintf(port.data(), port.size(), "%u", unsigned{request.GetPort()});
  Tell(field(ConnectionFieldPort), &IIPTextField::SetText, port.data());
  field(ConnectionField3);
  field(ConnectionField4);
}

void PublishValues(IIPCapabilities* capabilities, u32 index, u32 standard, std::span<const u32> values) {
  IIPValueList* const list = Ask(capabilities, &IIPCapabilities::GetValueList, index);
  Tell(list, &IIPValueList::SetDefault, standard);
  for (const u32 value : values) {
    Tell(list, &IIPValueList::AddValue, value);
  }
}

void PublishSetting(IIPCapabilities* capabilities, const Properties::Setting& setting) {
  IIPSettingEntry* const entry = Ask(capabilities, &IIPCapabilities::GetSettingEntry, setting.index);
  Tell(entry, &IIPSettingEntry::SetName, setting.name);
  Tell(entry, &IIPSettingEntry::SetAttributeB, 0);
  Tell(entry, &IIPSettingEntry::SetAttributeA, setting.attributeA);
  Tell(entry, &IIPSettingEntry::SetValue, setting.value);
}

}  // namespace

bool CBaseKolvexCameraProperties::Fetch(Web::HttpRequest& request, const char* path, std::vector<u8>& reply,
                                        u32& level) {
  const bool sent = request.Send("GET", path, false);
  if (!sent || request.GetStatusCode() != Web::kStatusOk) {
    level = sent && request.GetStatusCode() == Web::kStatusUnauthorized ? QueryFailureLogin : QueryFailureOther;
    return false;
  }
  // What came before the camera broke off counts.
  return ReadBody(request, kMostPropertyBytes, kReadBlockBytes, reply) ||
         (!reply.empty() && WasEndedByCamera());
}

std::optional<std::string> CBaseKolvexCameraProperties::ValueIn(std::string_view reply, std::string_view key,
                                                                char stop) {
  std::array<char, kValueBytes> value{};
  return ExtractCgiValue(reply, key, value, stop) ? std::optional<std::string>(value.data()) : std::nullopt;
}

void CBaseKolvexCameraProperties::Abort() { aborted_.store(1, std::memory_order_relaxed); }

bool CBaseKolvexCameraProperties::Publish(IIPCapabilities* capabilities, u32 isNTSC, Web::HttpRequest* request,
                                          const GroupValues& values) {
  if (capabilities == nullptr || request == nullptr) {
    return false;
  }
  Tell(capabilities, &IIPCapabilities::SetModelName, GetModel().c_str());
  PublishRecord(capabilities, *this);
  PublishResolutions(capabilities, *this, values);
  PublishConnection(capabilities, *request);
  PublishValues(capabilities, ValueListFrameIntervals, kStandardFrameInterval, values.frameIntervals);
  PublishValues(capabilities, ValueListQuality, kStandardQuality, kQualities);
  PublishSetting(capabilities, {SettingNetworkTimeout, "Network timeout", "5000", 0});
  PublishSetting(capabilities, {SettingCameraGroup, "Camera group", values.group, 0});
  PublishSetting(capabilities, {SettingVideoStandard, "Video standard", isNTSC != 0 ? "0" : "1", 0});
  for (const Setting& setting : values.settings) {
    PublishSetting(capabilities, setting);
  }
  return true;
}

}  // namespace sarnevo
