#pragma once

#include <memory>
#include <string>

#include "device/Device.h"
#include "kolvex/IIPCaptureDriver.h"
#include "platform/ProductVersion.h"

namespace sarnevo {

class CBaseIPVideoCapture;
class CIOBase;
class CKolvexIOHandler;
class CPTZHandler;

/// The driver of one camera: the root of every object that serves it.
///
/// Open copies what the host says about the camera and builds those objects. They see the driver as a Device, read
/// address, credentials and settings there, and send their debug messages to it. Close ends them in order. Neither
/// contacts the camera.
///
/// Threads: Open and Close run on a host thread, never at the same time as another operation. All fields are
/// fixed in between, so that any thread may read them.
///
/// This header knows the subsystems by name only. Open, Close and the getters of the built objects are in
/// Composition.cpp, the one file that includes them.
class CKolvexIPCaptureDriver final : public ipcapture::IIPCaptureDriverEx3, public Device {
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
  /// sink nothing happens. The host may take its time, or call back, so that the caller holds no lock but those
  /// that docs/stopping.md names.
  [[gnu::format(printf, 3, 4)]] void DebugMessage(u32 level, const char* format, ...) override;

 private:
  /// Open, but throws std::bad_alloc.
  bool Build(ipcapture::IDebugInfoSink* debugSink, ipcapture::IFrameAllocator* allocator,
             ipcapture::IIPDriverParams* params);
  // What Open copies from the host's parameter objects. Each numbered setting is read here and nowhere
  // else. Build asks in the order in which hosts have always been asked.
  void ReadDevice(ipcapture::IIPDeviceInfo* device);
  void ReadConnection(ipcapture::IIPConnectionInfo* connection);
  void ReadNetworkTimeout(ipcapture::IIPDriverParams* params);
  /// False when the host names none of the two.
  bool ReadGroup(ipcapture::IIPDriverParams* params);
  /// False when the host names none.
  bool ReadVideoStandard(ipcapture::IIPDriverParams* params);
  void ReadGroup1Settings(ipcapture::IIPDriverParams* params);

  // Set by Open, then constant. The sink belongs to the host and survives Close as a pointer.
  ipcapture::IDebugInfoSink* debugSink_ = nullptr;
  platform::Version hostVersion_;
  // Built in Open, ended in Close; a thread that is still inside one of them then keeps its memory.
  std::shared_ptr<CIOBase> digitalIO_;  // null without inputs and outputs
  std::shared_ptr<CKolvexIOHandler> ioHandler_;
  std::shared_ptr<CPTZHandler> ptzHandler_;
  std::shared_ptr<CBaseIPVideoCapture> videoCapture_;
};

}  // namespace sarnevo
