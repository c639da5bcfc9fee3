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
/// All pointers that the getters give belong to the driver and are void from Close on.
///
/// Any thread may call. During Open, Close and Delete no other thread of the host's is inside an operation of the driver
/// or of the objects that it gave, and no other Close or Delete is under way. There is one exception: Close and Delete may
/// come from inside a callback that another thread of the host's waits for, in StopCapture, ChangeFormat or
/// ICaptureIOApi::Stop. What the library's own threads are doing never matters.
class IIPCaptureDriver {
 public:
  virtual ~IIPCaptureDriver() = default;  ///< slot 0
  /// Takes the parameters and builds the camera's objects. Does no network traffic. False when setting 2
  /// or 3 is missing, setting 2 names no known group, or there is no memory. Called once per object.
  /// @param debugSink  may be null; not owned; lives until Close has returned
  /// @param allocator  may be null, and no frame is then delivered; not owned; lives until Close has returned
  /// @param params     read only during the call
  virtual bool Open(IDebugInfoSink* debugSink, IFrameAllocator* allocator,
                    IIPDriverParams* params) = 0;  ///< slot 1
  /// Ends everything that Open built. May be called again, or not at all: destruction does the same. Takes as long as
  /// IIPVideoCapture::StopCapture for each running channel, ICaptureIOApi::Stop, and the PTZ request under way.
  virtual void Close() = 0;  ///< slot 2
  /// Null before Open.
  virtual IIPVideoCapture* GetVideoCapture() = 0;  ///< slot 3
  /// Null when the camera has no digital inputs or outputs.
  virtual ICaptureIOApi* GetCaptureIO() = 0;  ///< slot 4
};

/// The second form; the same object.
class IIPCaptureDriverEx : public IIPCaptureDriver {
 public:
  /// Always null: not offered.
  virtual void* GetOptionalA() = 0;  ///< slot 5
  /// Not null after Open. For a camera without PTZ its GetPTZApi gives null.
  virtual IIPPTZDriver* GetPTZDriver() = 0;  ///< slot 6
};

/// The third form; the same object.
class IIPCaptureDriverEx2 : public IIPCaptureDriverEx {
 public:
  /// Always null: not offered.
  virtual void* GetOptionalB() = 0;  ///< slot 7
  /// The object of GetVideoCapture.
  virtual IIPVideoCaptureEx* GetVideoCaptureEx() = 0;  ///< slot 8
};

/// The newest form; the same object.
class IIPCaptureDriverEx3 : public IIPCaptureDriverEx2 {
 public:
  /// The object of GetPTZDriver.
  virtual IIPPTZDriverEx* GetPTZDriverEx() = 0;  ///< slot 9
};

}  // namespace ipcapture
}  // namespace sarnevo
