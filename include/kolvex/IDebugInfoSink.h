#pragma once

#include "kolvex/CDebugInfoIf.h"

namespace sarnevo::ipcapture {

/// Implemented by the host: receives every debug message of one driver.
///
/// Called from any thread, several at a time. An exception is caught and dropped.
class IDebugInfoSink {
 public:
  virtual ~IDebugInfoSink() = default;               // slot 0
  virtual void OnDebugInfo(CDebugInfoIf* info) = 0;  // slot 1
};

}  // namespace sarnevo::ipcapture
