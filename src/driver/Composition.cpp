// Builds and ends the objects of one driver. This file alone knows all subsystems, so that every other file
// includes only what lies below it.
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "driver/CKolvexIPCaptureDriver.h"
#include "io/CGroupDigitalIO.h"
#include "io/CKolvexIOHandler.h"
#include "kolvex/IIPDriverParams.h"
#include "ptz/CPTZHandler.h"
#include "threads/HostAsk.h"
#include "video/CBaseIPVideoCapture.h"

namespace sarnevo {

namespace {

using ipcapture::IIPConnectionInfo;
using ipcapture::IIPDeviceInfo;
using ipcapture::IIPDriverParams;

// The version of the host's core library says how new the host is. A host without it counts as one that knows every level.
constexpr const char* kHostCoreLibrary = "ovanhost.dll";
constexpr platform::Version kAssumedHostVersion{5, 12, 0, 0};

// Ends @p object and lets go of it. Its memory goes with the last thread that is still inside it. A second call, also
// from inside the first, does nothing.
template <typename Object>
void EndOwned(std::shared_ptr<Object>& object) {
  if (const auto ending = std::exchange(object, nullptr)) {
    ending->End();
  }
}

std::shared_ptr<CIOBase> BuildDigitalIO(CKolvexIPCaptureDriver* driver) {
  if (driver->GetInputCount() == 0 && driver->GetOutputCount() == 0) {
    return nullptr;
  }
  if (driver->GetGroup() == 1) {
    return std::make_shared<CKolvexGroup1DigitalIO>(driver, CIOBase::kPollIntervalMs);
  }
  return std::make_shared<CKolvexGroup2DigitalIO>(driver, CIOBase::kPollIntervalMs);
}

}  // namespace

bool CKolvexIPCaptureDriver::Open(ipcapture::IDebugInfoSink* debugSink, ipcapture::IFrameAllocator* allocator,
                                  IIPDriverParams* params) {
  try {
    return Build(debugSink, allocator, params);
  } catch (const std::bad_alloc&) {
    return false;  // Close frees what was built, as after every failure
  }
}

bool CKolvexIPCaptureDriver::Build(ipcapture::IDebugInfoSink* debugSink, ipcapture::IFrameAllocator* allocator,
                                   IIPDriverParams* params) {
  Close();  // a second Open is against the contract, but leaks nothing
  ReadNetworkTimeout(params);
  IIPConnectionInfo* const connection = Ask(params, &IIPDriverParams::GetConnection);
  codec_ = Ask(connection, &IIPConnectionInfo::GetCodec);
  IIPDeviceInfo* const device = Ask(params, &IIPDriverParams::GetDevice);
  channelCount_ = Ask(device, &IIPDeviceInfo::GetChannelCount);
  debugSink_ = debugSink;
  frameAllocator_ = allocator;
  ReadDevice(device);
  ReadConnection(connection);
  hostVersion_ = platform::ReadProductVersion(kHostCoreLibrary).value_or(kAssumedHostVersion);
  ioHandler_ = std::make_shared<CKolvexIOHandler>(this);

  if (!ReadGroup(params)) {
    return false;
  }
  digitalIO_ = BuildDigitalIO(this);

  videoCapture_ = std::make_shared<CBaseIPVideoCapture>(this, group_);

  if (!ReadVideoStandard(params)) {
    return false;
  }
  if (group_ == 1) {
    ReadGroup1Settings(params);
  }
  ptzHandler_ = std::make_shared<CPTZHandler>(this, channelCount_);

  // Last: the host may close and delete the driver in this message.
  DebugMessage(DebugLevelEvent, "DRIVER IS OPENED (name: %s, device model: %s, address: %s:%u)",
               GetDriverName().c_str(), deviceModel_.c_str(), address_.c_str(), static_cast<unsigned>(port_));
  return true;
}

void CKolvexIPCaptureDriver::Close() {
  // Video first: its threads use everything else here.
  EndOwned(videoCapture_);
  EndOwned(ptzHandler_);
  EndOwned(digitalIO_);
  ioHandler_.reset();
}

ipcapture::IIPVideoCapture* CKolvexIPCaptureDriver::GetVideoCapture() { return videoCapture_.get(); }

ipcapture::IIPVideoCaptureEx* CKolvexIPCaptureDriver::GetVideoCaptureEx() { return videoCapture_.get(); }

ICaptureIOApi* CKolvexIPCaptureDriver::GetCaptureIO() { return digitalIO_.get(); }

IIPPTZDriver* CKolvexIPCaptureDriver::GetPTZDriver() { return ptzHandler_.get(); }

IIPPTZDriverEx* CKolvexIPCaptureDriver::GetPTZDriverEx() { return ptzHandler_.get(); }

}  // namespace sarnevo
