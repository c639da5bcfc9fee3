#include "ptz/CPtzCommandBuilder.h"

#include <cstdio>
#include <iterator>

#include "kolvex/IIPPTZApi.h"
#include "ptz/CPelcoDPtzCommand.h"
#include "ptz/HexText.h"

namespace sarnevo {

namespace {

using Frame = CPelcoDPtzCommand;

constexpr char kWrite[] = "/serial.cgi?action=apply&port=2&write=";

// The protocol of three-byte messages: nearly all begin with 01, then follow a command and a data byte.

constexpr char kWrite01[] = "/serial.cgi?action=apply&port=2&write=01";

enum Pan : u8 { PanLeft = 0, PanRight = 1, NoPan };
enum Tilt : u8 { TiltDown = 0, TiltUp = 1, NoTilt };

struct Movement {
  const char* command;  // three-byte protocol, which takes both cases of digits: the data go out in lower case
  Pan pan;
  Tilt tilt;
};

// By PtzDirection.
constexpr Movement kMovements[] = {
    {"02", PanLeft, NoTilt},     //
    {"01", PanRight, NoTilt},    //
    {"04", NoPan, TiltUp},       //
    {"08", NoPan, TiltDown},     //
    {"06", PanLeft, TiltUp},     //
    {"05", PanRight, TiltUp},    //
    {"0A", PanLeft, TiltDown},   //
    {"09", PanRight, TiltDown},  //
};

constexpr char kZoomIn[] = "10FF";
constexpr char kZoomOut[] = "20FF";
constexpr char kFocusFar[] = "40FF";
constexpr char kFocusNear[] = "80FF";
constexpr char kIrisClose[] = "0001";
constexpr char kIrisOpen[] = "0000";
constexpr char kStop[] = "00FF";
constexpr char kAutoFocus[] = "00D5";
constexpr char kAutoIris[] = "00D4";
constexpr char kDeleteAllPresets[] = "01FFF5";
constexpr char kStorePreset[] = "810570";  // at the slot last gone to

constexpr u8 kNoSpeed = 253;

// The scale of each protocol ends at 7 and at 64, one above Pelco-D's ordinary range: the heads take it.
u8 GetSpeedByte(i32 speed, i32 scale) {
  if (speed < 1 || speed > 16) {
    return kNoSpeed;
  }
  return static_cast<u8>(scale * speed / 15);
}

std::string ThreeByteMove(u32 direction, i32 speed) {
  if (direction == PtzZoomIn || direction == PtzZoomOut) {
    return std::string(kWrite01) + (direction == PtzZoomIn ? kZoomIn : kZoomOut);
  }
  if (direction >= std::size(kMovements)) {
    return kWrite01;
  }
  // Data byte: bit 7 always, tilt speed in bits 3 to 5, pan speed in bits 0 to 2.
  const Movement& movement = kMovements[direction];
  const u8 speedByte = GetSpeedByte(speed, 7);
  u8 data = 0x80;
  if (movement.pan != NoPan) {
    data = static_cast<u8>(data | speedByte);
  }
  if (movement.tilt != NoTilt) {
    data = static_cast<u8>(data | (speedByte << 3));
  }
  return std::string(kWrite01) + movement.command + LowerHex(data);
}

const char* ThreeByteLensData(u32 code) {
  switch (code) {
    case LensFocusFar:
      return kFocusFar;
    case LensFocusNear:
      return kFocusNear;
    case LensIrisClose:
      return kIrisClose;
    case LensIrisOpen:
      return kIrisOpen;
    case LensFocusStop:
    case LensIrisStop:
      return kStop;
    default:
      return "";
  }
}

std::string ThreeBytePreset(PresetOperation operation, u32 slot) {
  switch (operation) {
    case PresetDelete:
      return std::string(kWrite) + kDeleteAllPresets;
    case PresetStore:
      return std::string(kWrite) + kStorePreset;
    case PresetGoto:
      break;
  }
  char message[16];
  std::snprintf(message, sizeof(message), "41%.2x00", slot);
  return std::string(kWrite) + message;
}

// Pelco-D: each function sets what its command needs on a reset frame, which by itself is a stop.

void PelcoMove(Frame& frame, u32 direction, i32 speed) {
  if (direction == PtzZoomIn || direction == PtzZoomOut) {
    frame.SetZoom(direction == PtzZoomIn);
    return;
  }
  if (direction >= std::size(kMovements)) {
    return;
  }
  const Movement& movement = kMovements[direction];
  const u8 speedByte = GetSpeedByte(speed, 60);
  if (movement.pan != NoPan) {
    frame.SetPan(movement.pan, speedByte);
  }
  if (movement.tilt != NoTilt) {
    frame.SetTilt(movement.tilt, speedByte);
  }
}

void PelcoLens(Frame& frame, u32 code) {
  switch (code) {
    case LensFocusFar:
      frame.SetFocus(1);
      break;
    case LensFocusNear:
      frame.SetFocus(0);
      break;
    case LensIrisClose:
      frame.SetIris(0);
      break;
    case LensIrisOpen:
      frame.SetIris(1);
      break;
    case LensFocusStop:
      frame.SetExtended(Frame::ExtendedFocusSpeed, 0);
      break;
    default:
      break;
  }
}

void PelcoPreset(Frame& frame, PresetOperation operation, u32 slot) {
  // Presets count from 1. A slot beyond the last one, which only a strange preset file can name, must not
  // wrap around to another preset: 0 is none, and leaves the stop frame.
  const u8 preset = slot < Frame::kMaxPreset ? static_cast<u8>(slot + 1) : 0;
  switch (operation) {
    case PresetDelete:
      frame.SetPreset(Frame::ExtendedClearPreset, preset);
      break;
    case PresetGoto:
      frame.SetPreset(Frame::ExtendedGotoPreset, preset);
      break;
    case PresetStore:
      frame.SetPreset(Frame::ExtendedStorePreset, preset);
      break;
  }
}

// One command in the protocol that is set; @p set works on a frame of this build's own.
template <typename ThreeByte, typename Set>
std::string Build(u32 protocol, ThreeByte threeByte, Set set) {
  switch (protocol) {
    case PtzProtocolThreeByte:
      return threeByte();
    case PtzProtocolPelcoD: {
      Frame frame;
      set(frame);
      return kWrite + frame.ToHexString();
    }
    default:
      return {};
  }
}

}  // namespace

std::string CPtzCommandBuilder::MoveCommand(u32 direction, i32 speed) const {
  return Build(
      Protocol(), [&] { return ThreeByteMove(direction, speed); },
      [&](Frame& frame) { PelcoMove(frame, direction, speed); });
}

std::string CPtzCommandBuilder::LensCommand(u32 code) const {
  return Build(
      Protocol(), [&] { return std::string(kWrite01) + ThreeByteLensData(code); },
      [&](Frame& frame) { PelcoLens(frame, code); });
}

std::string CPtzCommandBuilder::StopCommand() const {
  return Build(
      Protocol(), [] { return std::string(kWrite01) + kStop; }, [](Frame& frame) { frame.ClearMotion(); });
}

std::string CPtzCommandBuilder::AutoFocusCommand() const {
  return Build(
      Protocol(), [] { return std::string(kWrite01) + kAutoFocus; },
      [](Frame& frame) { frame.SetExtended(Frame::ExtendedAutoFocus, 0); });
}

std::string CPtzCommandBuilder::AutoIrisCommand() const {
  return Build(
      Protocol(), [] { return std::string(kWrite01) + kAutoIris; },
      [](Frame& frame) { frame.SetExtended(Frame::ExtendedAutoIris, 0); });
}

std::string CPtzCommandBuilder::PresetCommand(PresetOperation operation, u32 slot) const {
  return Build(
      Protocol(), [&] { return ThreeBytePreset(operation, slot); },
      [&](Frame& frame) { PelcoPreset(frame, operation, slot); });
}

}  // namespace sarnevo
