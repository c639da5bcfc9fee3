#include "driver/CKolvexIPCaptureDriver.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include "driver/CDebugInfo.h"
#include "threads/HostCall.h"

namespace sarnevo {

namespace {

// From this version on the host knows level 3.
constexpr HostVersion kKnowsEventLevel{5, 12, 0, 0};
constexpr u32 kOutLevelMask = 0x0F;

u8 LevelForHost(u32 level, const HostVersion& host) {
  const u32 outLevel = level & kOutLevelMask;
  if (host < kKnowsEventLevel && level == DebugLevelEvent && outLevel > DebugLevelOldHost) {
    return static_cast<u8>(DebugLevelOldHost);
  }
  return static_cast<u8>(outLevel);
}

// The finished text in a buffer of exactly its size; null when the format can't be carried out or there is no
// memory, and then the message is lost.
std::unique_ptr<char[]> Format(const char* format, std::va_list arguments) {
  std::va_list counting;
  va_copy(counting, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, counting);
  va_end(counting);
  if (length < 0) {
    return nullptr;
  }
  const std::size_t size = static_cast<std::size_t>(length) + 1;
  std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
  if (text) {
    std::vsnprintf(text.get(), size, format, arguments);
  }
  return text;
}

}  // namespace

CKolvexIPCaptureDriver::CKolvexIPCaptureDriver() = default;

CKolvexIPCaptureDriver::~CKolvexIPCaptureDriver() { CKolvexIPCaptureDriver::Close(); }

u32 CKolvexIPCaptureDriver::GetNetworkTimeout() noexcept {
  const COptexGuard guard(lock_);
  return networkTimeout_;
}

void CKolvexIPCaptureDriver::DebugMessage(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::unique_ptr<char[]> text = Format(format, arguments);
  va_end(arguments);
  if (!text || level == DebugLevelDropped || debugSink_ == nullptr) {
    return;
  }
  std::optional<CDebugInfo> info(std::in_place, LevelForHost(level, hostVersion_), text.get());
  // The sink may end this thread's object and with it the thread; what this frame owns goes with it.
  CallHost([&, sink = debugSink_] { sink->OnDebugInfo(&*info); },
           [&] {
             info.reset();
             text.reset();
           });
}

}  // namespace sarnevo
