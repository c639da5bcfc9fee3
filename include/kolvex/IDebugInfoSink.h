#pragma once

#include "kolvex/CDebugInfoIf.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: receives every debug message of one driver.
///
/// Called from any thread, the library's and those of the host that are inside one of its calls, several at a time. An
/// exception is caught and dropped. It lives until IIPCaptureDriver::Close, or the deletion, has returned.
///
/// It may call the driver that sends the message, Close and DeleteIPCapture too, on whatever thread: the call that
/// was in progress there then returns in the ordinary way, and its result says nothing.
class IDebugInfoSink {
 public:
  virtual ~IDebugInfoSink() = default;  ///< slot 0
  /// @param info  the message; read only during the call
  virtual void OnDebugInfo(CDebugInfoIf* info) = 0;  ///< slot 1
};

}  // namespace sarnevo::ipcapture
