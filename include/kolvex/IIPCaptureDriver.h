#pragma once

#include "kolvex/IDebugInfoSink.h"
#include "kolvex/IFrameAllocator.h"
#include "kolvex/IIPDriverParams.h"
#include "kolvex/IIPVideoCapture.h"

namespace sarnevo {

class ICaptureIOApi;
class IIPPTZDriver;
class IIPPTZDriverEx;

namespace ipcapture {

/// The driver of one camera, from CreateIPCapture to DeleteIPCapture.
///
/// All pointers that the getters give belong to the driver and are void from Close on. Open and Close
/// are not called at the same time as any other operation of the same driver; everything else may be
/// called from any thread.
class IIPCaptureDriver {
 public:
  virtual ~IIPCaptureDriver() = default;  // slot 0
  /// Takes the parameters and builds the camera's objects. Does no network traffic. False when setting 2
  /// or 3 is missing, setting 2 names no known group, or there is no memory. Called once per object.
  virtual bool Open(IDebugInfoSink* debugSink, IFrameAllocator* allocator,
                    IIPDriverParams* params) = 0;  // slot 1
  /// Ends everything that Open built. May be called again, or not at all: destruction does the same.
  virtual void Close() = 0;                        // slot 2
  virtual IIPVideoCapture* GetVideoCapture() = 0;  // slot 3
  /// Null when the camera has no digital inputs or outputs.
  virtual ICaptureIOApi* GetCaptureIO() = 0;  // slot 4
};

class IIPCaptureDriverEx : public IIPCaptureDriver {
 public:
  /// Always null: not offered.
  virtual void* GetOptionalA() = 0;          // slot 5
  virtual IIPPTZDriver* GetPTZDriver() = 0;  // slot 6
};

class IIPCaptureDriverEx2 : public IIPCaptureDriverEx {
 public:
  /// Always null: not offered.
  virtual void* GetOptionalB() = 0;  // slot 7
  /// The object of GetVideoCapture.
  virtual IIPVideoCaptureEx* GetVideoCaptureEx() = 0;  // slot 8
};

class IIPCaptureDriverEx3 : public IIPCaptureDriverEx2 {
 public:
  /// The object of GetPTZDriver.
  virtual IIPPTZDriverEx* GetPTZDriverEx() = 0;  // slot 9
};

}  // namespace ipcapture
}  // namespace sarnevo
