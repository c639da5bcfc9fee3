#include "ptz/CBasePTZComm.h"

#include <cstdarg>
#include <memory>
#include <new>

#include "device/MessageText.h"

namespace sarnevo {

CBasePTZComm::~CBasePTZComm() { Close(); }

i32 CBasePTZComm::Open() {
  commandBuilder_.SetProtocol(GetPtzProtocol());
  if (opened_ != 0) {
    return PtzDone;
  }
  if (!Start("KolvexIPPTZThread")) {
    DebugMessage(DebugLevelFailure, "%s: unable to create thread", "sarnevo::CBasePTZComm::Open");
    return PtzNotQueued;
  }
  opened_ = 1;
  return PtzDone;
}

i32 CBasePTZComm::Close() {
  if (opened_ != 0) {
    Stop();
    opened_ = 0;
  }
  return PtzDone;
}

i32 CBasePTZComm::StartMove(IIPParams* params, u32 direction, i32 speed) {
  if (speed < 0 || speed > kMaxSpeed) {
    return PtzInvalidArgument;
  }
  if (speed == 0) {
    return PtzDone;
  }
  return Post("sarnevo::CBasePTZComm::StartMove", PTZItemMove, params, direction, static_cast<u32>(speed));
}

i32 CBasePTZComm::StopMove(IIPParams* params) {
  return Post("sarnevo::CBasePTZComm::StopMove", PTZItemStop, params);
}

i32 CBasePTZComm::Iris(IIPParams* params, u8 open, u32 speed) {
  const LensCode start = open != 0 ? LensIrisOpen : LensIrisClose;
  return Post("sarnevo::CBasePTZComm::Iris", PTZItemLens, params, speed != 0 ? start : LensIrisStop);
}

i32 CBasePTZComm::Focus(IIPParams* params, u8 near, u32 speed) {
  const LensCode start = near != 0 ? LensFocusNear : LensFocusFar;
  return Post("sarnevo::CBasePTZComm::Focus", PTZItemLens, params, speed != 0 ? start : LensFocusStop);
}

i32 CBasePTZComm::AreaZoom(IIPParams* params, u32 a, u32 b, u32 c, u32 d) {
  return Post("sarnevo::CBasePTZComm::AreaZoom", PTZItemAreaZoom, params, a, b, c, d);
}

i32 CBasePTZComm::Unzoom(IIPParams* params, u32 a) {
  return Post("sarnevo::CBasePTZComm::Unzoom", PTZItemUnzoom, params, a);
}

i32 CBasePTZComm::Center(IIPParams* params, u32 a, u32 b, u32 c) {
  return Post("sarnevo::CBasePTZComm::Center", PTZItemCenter, params, a, b, c);
}

i32 CBasePTZComm::Post(const char* operation, u32 type, IIPParams* params, u32 a, u32 b, u32 c, u32 d) {
  // No item without memory; the queue refuses null like any other time when it takes nothing.
  std::unique_ptr<CWorkItem> item(new (std::nothrow) CWorkItem(type, params, a, b, c, d));
  if (PostWorkItem(item.get(), 0)) {
    static_cast<void>(item.release());  // the queue's
    return PtzDone;
  }
  DebugMessage(DebugLevelFailure, "%s: cannot send message (%d) to thread", operation, static_cast<int>(type));
  return PtzNotQueued;
}

void CBasePTZComm::DebugMessage(u32 level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const MessageText text(format, arguments);
  va_end(arguments);
  if (text.Get() != nullptr) {
    device_->DebugMessage(level, "%s", text.Get());
  }
}

}  // namespace sarnevo
