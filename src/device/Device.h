#pragma once

#include <string>

#include "device/CQualitySettings.h"
#include "device/ChannelTiming.h"
#include "device/IDebugMessage.h"
#include "kolvex/Types.h"
#include "threads/COptex.h"

namespace sarnevo {

namespace ipcapture {
class IFrameAllocator;
}

/// What an object that serves a camera asks of it: address, credentials, settings, the host's frame allocator, and
/// where messages go. The driver fills it in Open; from then on it is constant, so that any thread may read it.
class Device : public IDebugMessage {
 public:
  /// What the driver calls itself towards the host.
  static constexpr const char* kDriverName = "NewKolvexIPCapture";

  ~Device() override;  // wipes the password
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Null when the host gave none.
  ipcapture::IFrameAllocator* GetFrameAllocator() const noexcept { return frameAllocator_; }
  /// Milliseconds, never 0 after Open.
  u32 GetNetworkTimeout() noexcept;
  const std::string& GetDeviceModel() const noexcept { return deviceModel_; }
  /// Dotted IPv4 address.
  const std::string& GetAddress() const noexcept { return address_; }
  /// The camera's HTTP port.
  u16 GetPort() const noexcept { return port_; }
  const std::string& GetUserName() const noexcept { return userName_; }
  const std::string& GetPassword() const noexcept { return password_; }
  /// One of the Codec values, or any other number that the host gave.
  u32 GetCodec() const noexcept { return codec_; }
  /// One of the VideoStandard values.
  u32 GetVideoStandard() const noexcept { return videoStandard_; }
  u32 GetInputCount() const noexcept { return inputCount_; }
  u32 GetOutputCount() const noexcept { return outputCount_; }
  u32 GetChannelCount() const noexcept { return channelCount_; }
  const CQualitySettings& GetQualitySettings() const noexcept { return quality_; }
  /// Camera group, 1 or 2.
  u32 GetGroup() const noexcept { return group_; }
  /// The camera's hardware address; empty for group 2.
  std::string GetMacAddress() const { return macAddress_; }
  std::string GetDriverName() const { return kDriverName; }

  const ChannelTiming& GetChannelTiming() const noexcept { return channelTiming_; }
  /// For tests, before StartCapture.
  void SetChannelTiming(const ChannelTiming& timing) noexcept { channelTiming_ = timing; }

 protected:
  Device() = default;

  u32 codec_ = 0;
  u32 videoStandard_ = VideoStandardPAL;
  std::string deviceModel_;
  std::string address_;
  u16 port_ = 0;
  std::string userName_;
  std::string password_;  // wiped on every change and at the end
  u32 inputCount_ = 0;
  u32 outputCount_ = 0;
  ipcapture::IFrameAllocator* frameAllocator_ = nullptr;  // the host's; survives Close as a pointer
  u32 channelCount_ = 0;
  u32 networkTimeout_ = 0;  // milliseconds; read under lock_
  u32 group_ = 0;
  CQualitySettings quality_;
  std::string macAddress_;
  COptex lock_;  // held while GetNetworkTimeout reads
  ChannelTiming channelTiming_;
};

}  // namespace sarnevo
