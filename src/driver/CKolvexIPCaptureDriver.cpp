#include "driver/CKolvexIPCaptureDriver.h"

#include <cstdarg>

#include "driver/CDebugInfo.h"
#include "device/MessageText.h"
#include "threads/HostCall.h"

namespace sarnevo {

namespace {

constexpr u32 kOutLevelMask = 0x0F;

u8 LevelForHost(u32 level, const HostVersion& host) {
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
