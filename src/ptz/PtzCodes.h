#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// A camera's serial PTZ protocol, as the key "serial_device" of its serial port settings gives it.
enum PtzProtocol : u32 {
  PtzProtocolNone = 0,  ///< none, or not known yet
  PtzProtocolThreeByte = 1,
  PtzProtocolPelcoD = 2,
};

/// What a work item asks for; also the number of the message about it.
enum PtzItemType : u32 {
  PTZItemStop = 0,
  PTZItemMove = 1,  ///< a PtzDirection and a speed
  PTZItemLens = 2,  ///< a LensCode
  PTZItemAreaZoom = 3,
  PTZItemCenter = 4,
  PTZItemUnzoom = 5,
};

enum LensCode : u32 {
  LensFocusFar = 11,
  LensFocusNear = 12,
  LensIrisClose = 13,
  LensIrisOpen = 14,
  LensFocusStop = 15,
  LensIrisStop = 16,
};

enum PresetOperation : u32 {
  PresetDelete = 0,
  PresetGoto = 1,
  PresetStore = 2,
};

}  // namespace sarnevo
