#pragma once

#include <string>

#include "device/ChannelTiming.h"
#include "device/CQualitySettings.h"
#include "driver/HostVersion.h"
#include "device/IDebugMessage.h"
#include "kolvex/IIPCaptureDriver.h"
#include "threads/COptex.h"

namespace sarnevo {

class CBaseIPVideoCapture;
class CKolvexIOHandler;
class CPTZHandler;

/// The driver of one camera: the root of every object that serves it.
///
/// Open copies what the host tells about the camera and builds those objects; from then on they hold a plain
/// pointer to the driver, read address, credentials and settings through the accessors below, and send
/// their debug messages through DebugMessage. Close ends them in order. Neither contacts the camera.
///
/// Threads: Open and Close run on a host thread, never at the same time as another operation. All fields are
/// fixed in between, so that any thread may read them.
///
/// This header knows the subsystems by name only. Open, Close and the getters of the built objects stand in
/// Composition.cpp, the one file that includes them.
class CKolvexIPCaptureDriver final : public ipcapture::IIPCaptureDriverEx3, public IDebugMessage {
 public:
  CKolvexIPCaptureDriver();
  /// Runs Close first.
  ~CKolvexIPCaptureDriver() override;
  CKolvexIPCaptureDriver(const CKolvexIPCaptureDriver&) = delete;
  CKolvexIPCaptureDriver& operator=(const CKolvexIPCaptureDriver&) = delete;

  bool Open(ipcapture::IDebugInfoSink* debugSink, ipcapture::IFrameAllocator* allocator,
            ipcapture::IIPDriverParams* params) override;
  void Close() override;
  ipcapture::IIPVideoCapture* GetVideoCapture() override;
  ICaptureIOApi* GetCaptureIO() override;
  void* GetOptionalA() override { return nullptr; }
  IIPPTZDriver* GetPTZDriver() override;
  void* GetOptionalB() override { return nullptr; }
  ipcapture::IIPVideoCaptureEx* GetVideoCaptureEx() override;
  IIPPTZDriverEx* GetPTZDriverEx() override;

  /// Hands a finished message to the host's sink, on the calling thread. Any thread, at any time; without a
  /// sink nothing happens. The caller holds no lock: the host may take its time, or call back.
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override;

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
  /// One of the Codec values, or what else the host gave.
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
  std::string GetDriverName() const { return "NewKolvexIPCapture"; }

  const ChannelTiming& GetChannelTiming() const noexcept { return channelTiming_; }
  /// For tests, before StartCapture.
  void SetChannelTiming(const ChannelTiming& timing) noexcept { channelTiming_ = timing; }

 private:
  /// Open, but throws std::bad_alloc.
  bool Build(ipcapture::IDebugInfoSink* debugSink, ipcapture::IFrameAllocator* allocator,
             ipcapture::IIPDriverParams* params);
  void ReadDevice(ipcapture::IIPDeviceInfo* device);
  void ReadConnection(ipcapture::IIPConnectionInfo* connection);
  void ReadGroup1Settings(ipcapture::IIPDriverParams* params);

  // Set by Open, then constant. Sink and allocator belong to the host and survive Close as pointers.
  ipcapture::IDebugInfoSink* debugSink_ = nullptr;
  std::string deviceModel_;
  u32 codec_ = 0;
  u32 videoStandard_ = VideoStandardPAL;
  std::string address_;
  u16 port_ = 0;
  std::string userName_;
  std::string password_;  // wiped on every change and at the end
  u32 inputCount_ = 0;
  u32 outputCount_ = 0;
  ICaptureIOApi* digitalIO_ = nullptr;  // owned, built in Open, ended in Close; null without inputs and outputs
  CKolvexIOHandler* ioHandler_ = nullptr;  // owned, built in Open, ended in Close
  CPTZHandler* ptzHandler_ = nullptr;      // owned, built in Open, ended in Close
  ipcapture::IFrameAllocator* frameAllocator_ = nullptr;
  u32 channelCount_ = 0;
  u32 networkTimeout_ = 0;  // milliseconds; under lock_
  u32 group_ = 0;
  CQualitySettings quality_;
  std::string macAddress_;
  COptex lock_;
  HostVersion hostVersion_;
  CBaseIPVideoCapture* videoCapture_ = nullptr;  // owned, built in Open, ended in Close
  ChannelTiming channelTiming_;
};

}  // namespace sarnevo
