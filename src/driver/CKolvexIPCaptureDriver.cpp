#include "driver/CKolvexIPCaptureDriver.h"

#include <array>
#include <cstdarg>
#include <string>

#include "driver/CDebugInfo.h"
#include "device/DecimalText.h"
#include "device/MessageText.h"
#include "kolvex/IIPDriverParams.h"
#include "platform/SecureErase.h"
#include "threads/HostAsk.h"

namespace sarnevo {

using ipcapture::IIPConnectionInfo;
using ipcapture::IIPDeviceInfo;

namespace {

constexpr u32 kDefaultNetworkTimeout = 5000;  // milliseconds
constexpr u32 kOutLevelMask = 0x0F;

u8 LevelForHost(u32 level, const platform::Version& host) {
  const u32 outLevel = level & kOutLevelMask;
  const bool knowsEventLevel = host.IsAtLeast(5, 12, 0, 0);
  if (!knowsEventLevel && level == DebugLevelEvent && outLevel > DebugLevelOldHost) {
    return static_cast<u8>(DebugLevelOldHost);
  }
  return static_cast<u8>(outLevel);
}

}  // namespace

CKolvexIPCaptureDriver::CKolvexIPCaptureDriver() = default;

CKolvexIPCaptureDriver::~CKolvexIPCaptureDriver() { CKolvexIPCaptureDriver::Close(); }

void CKolvexIPCaptureDriver::ReadDevice(IIPDeviceInfo* device) {
  deviceModel_ = AskText(device, &IIPDeviceInfo::GetModel);
  inputCount_ = Ask(device, &IIPDeviceInfo::GetInputCount);
  outputCount_ = Ask(device, &IIPDeviceInfo::GetOutputCount);
}

void CKolvexIPCaptureDriver::ReadConnection(IIPConnectionInfo* connection) {
  address_ = AskText(connection, &IIPConnectionInfo::GetAddress);
  port_ = Ask(connection, &IIPConnectionInfo::GetPort);
  userName_ = AskText(connection, &IIPConnectionInfo::GetUserName);
  // Swapped in and the other wiped: a text that is moved may keep its characters.
  std::string given = AskText(connection, &IIPConnectionInfo::GetPassword);
  password_.swap(given);
  platform::SecureErase(given);
}

void CKolvexIPCaptureDriver::ReadNetworkTimeout(ipcapture::IIPDriverParams* params) {
  const auto setting = AskSetting(params, SettingNetworkTimeout);
  const i32 value = setting ? ParseDecimal(*setting) : 0;
  networkTimeout_ = value > 0 ? static_cast<u32>(value) : kDefaultNetworkTimeout;
}

bool CKolvexIPCaptureDriver::ReadGroup(ipcapture::IIPDriverParams* params) {
  const auto setting = AskSetting(params, SettingCameraGroup);
  const i32 group = setting ? ParseDecimal(*setting) : 0;
  if (group != 1 && group != 2) {
    return false;
  }
  group_ = static_cast<u32>(group);
  return true;
}

bool CKolvexIPCaptureDriver::ReadVideoStandard(ipcapture::IIPDriverParams* params) {
  const auto setting = AskSetting(params, SettingVideoStandard);
  if (!setting) {
    return false;
  }
  videoStandard_ = ParseDecimal(*setting) == 1 ? VideoStandardPAL : VideoStandardNTSC;
  return true;
}

void CKolvexIPCaptureDriver::ReadGroup1Settings(ipcapture::IIPDriverParams* params) {
  struct Limit {
    u32 index;
    i32 CQualitySettings::*field;
  };
  static constexpr std::array kLimits{
      Limit{SettingMaxQualityJPEG, &CQualitySettings::maxQualityJPEG},
      Limit{SettingMinQualityJPEG, &CQualitySettings::minQualityJPEG},
      Limit{SettingMaxQualityMPEG, &CQualitySettings::maxQualityMPEG},
      Limit{SettingMinQualityMPEG, &CQualitySettings::minQualityMPEG},
  };
  // A setting that the host lacks leaves its field alone.
  for (const Limit& limit : kLimits) {
    if (const auto text = AskSetting(params, limit.index)) {
      quality_.*limit.field = ParseDecimal(*text);
    }
  }
  if (const auto list = AskSetting(params, SettingBitrateList)) {
    quality_.bitrates = ParseBitrateList(*list);
  }
  if (const auto address = AskSetting(params, SettingMAC)) {
    macAddress_ = *address;
  }
}

void CKolvexIPCaptureDriver::DebugMessage(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const MessageText text(format, arguments);
  va_end(arguments);
  if (text.Get() == nullptr || level == DebugLevelDropped || debugSink_ == nullptr) {
    return;
  }
  CDebugInfo info(LevelForHost(level, hostVersion_), text.Get());
  CallHost([&info, sink = debugSink_] { sink->OnDebugInfo(&info); });  // which may delete the driver
}

}  // namespace sarnevo
