// What Open copies from the host's parameter objects. The order of the questions is the order in which hosts
// have always been asked.
#include <array>
#include <optional>
#include <string>

#include "driver/CKolvexIPCaptureDriver.h"
#include "device/DecimalText.h"
#include "kolvex/IIPDriverParams.h"
#include "platform/SecureErase.h"
#include "threads/HostAsk.h"

namespace sarnevo {

using ipcapture::IIPConnectionInfo;
using ipcapture::IIPDeviceInfo;

void CKolvexIPCaptureDriver::ReadDevice(IIPDeviceInfo* device) {
  deviceModel_ = AskText(device, &IIPDeviceInfo::GetModel);
  inputCount_ = Ask(device, &IIPDeviceInfo::GetInputCount);
  outputCount_ = Ask(device, &IIPDeviceInfo::GetOutputCount);
}

void CKolvexIPCaptureDriver::ReadConnection(IIPConnectionInfo* connection) {
  address_ = AskText(connection, &IIPConnectionInfo::GetAddress);
  port_ = Ask(connection, &IIPConnectionInfo::GetPort);
  userName_ = AskText(connection, &IIPConnectionInfo::GetUserName);
  // Swapped in and the other wiped: a text that is moved may leave its characters behind.
  std::string given = AskText(connection, &IIPConnectionInfo::GetPassword);
  password_.swap(given);
  platform::SecureErase(given);
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

}  // namespace sarnevo
