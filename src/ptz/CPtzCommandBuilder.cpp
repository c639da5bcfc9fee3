#include "ptz/CPtzCommandBuilder.h"

#include <cstdio>
#include <iterator>

#include "kolvex/IIPPTZApi.h"

namespace sarnevo {

namespace {

using Frame = CPelcoDPtzCommand;

constexpr char kWrite[] = "/serial.cgi?action=apply&port=2&write=";

// Three-byte messages: nearly all begin with 01, then follow a command and a data byte. The heads take both cases of
// digits; what is computed goes out in lower case.
constexpr char kStop[] = "0100FF";
constexpr char kZoomIn[] = "0110FF";
constexpr char kZoomOut[] = "0120FF";
constexpr char kAutoFocus[] = "0100D5";
constexpr char kAutoIris[] = "0100D4";
constexpr char kDeleteAllPresets[] = "01FFF5";
constexpr char kStorePreset[] = "810570";  // at the slot last gone to
constexpr char kUnknown[] = "01";          // no command follows

enum Pan : u8 { PanLeft = 0, PanRight = 1, NoPan };
enum Tilt : u8 { TiltDown = 0, TiltUp = 1, NoTilt };

struct Movement {
  const char* command;  // of three-byte messages
  Pan pan;
  Tilt tilt;
};

// By PtzDirection.
constexpr Movement kMovements[] = {
    {"0102", PanLeft, NoTilt},     //
    {"0101", PanRight, NoTilt},    //
    {"0104", NoPan, TiltUp},       //
    {"0108", NoPan, TiltDown},     //
    {"0106", PanLeft, TiltUp},     //
    {"0105", PanRight, TiltUp},    //
    {"010A", PanLeft, TiltDown},   //
    {"0109", PanRight, TiltDown},  //
};

struct Lens {
  LensCode code;
  const char* message;  // of three bytes
  void (*set)(Frame& frame);
};

// A Pelco-D head ends an iris movement with the stop frame, and one of the focus with a speed of 0.
constexpr Lens kLens[] = {
    {LensFocusFar, "0140FF", [](Frame& frame) { frame.SetFocus(1); }},
    {LensFocusNear, "0180FF", [](Frame& frame) { frame.SetFocus(0); }},
    {LensIrisClose, "010001", [](Frame& frame) { frame.SetIris(0); }},
    {LensIrisOpen, "010000", [](Frame& frame) { frame.SetIris(1); }},
    {LensFocusStop, kStop, [](Frame& frame) { frame.SetExtended(Frame::ExtendedFocusSpeed, 0); }},
    {LensIrisStop, kStop, [](Frame&) {}},
};

constexpr u8 kNoSpeed = 253;

// Speeds 1 to 16 on the scale of the head's protocol: 0 to 7, or 4 to 64. 64 is one above Pelco-D's ordinary range; the
// heads take it.
u8 GetSpeedByte(i32 speed, i32 scale) {
  if (speed < 1 || speed > 16) {
    return kNoSpeed;
  }
  return static_cast<u8>(scale * speed / 15);
}

// @p text and the two digits of @p byte.
std::string WithHex(const char* text, u32 byte) {
  char message[16];
  std::snprintf(message, sizeof(message), "%s%.2x", text, byte);
  return message;
}

// Data byte: bit 7 always, tilt speed in bits 3 to 5, pan speed in bits 0 to 2.
std::string ThreeByteMove(const Movement& movement, i32 speed) {
  const u8 speedByte = GetSpeedByte(speed, 7);
  const u8 pan = movement.pan != NoPan ? speedByte : 0;
  const auto tilt = static_cast<u8>(movement.tilt != NoTilt ? speedByte << 3 : 0);
  return WithHex(movement.command, 0x80U | pan | tilt);
}

Frame PelcoMove(const Movement& movement, i32 speed) {
  Frame frame;
  const u8 speedByte = GetSpeedByte(speed, 60);
  if (movement.pan != NoPan) {
    frame.SetPan(movement.pan, speedByte);
  }
  if (movement.tilt != NoTilt) {
    frame.SetTilt(movement.tilt, speedByte);
  }
  return frame;
}

Frame PelcoExtended(Frame::Extended command) {
  Frame frame;
  frame.SetExtended(command, 0);
  return frame;
}

}  // namespace

std::string CPtzCommandBuilder::Command(const std::string& threeBytes, Frame frame) const {
  switch (Protocol()) {
    case PtzProtocolThreeByte:
      return kWrite + threeBytes;
    case PtzProtocolPelcoD:
      return kWrite + frame.ToHexString();
    default:
      return {};
  }
}

std::string CPtzCommandBuilder::MoveCommand(u32 direction, i32 speed) const {
  if (direction == PtzZoomIn || direction == PtzZoomOut) {
    const bool in = direction == PtzZoomIn;
    Frame frame;
    frame.SetZoom(in);
    return Command(in ? kZoomIn : kZoomOut, frame);
  }
  if (direction >= std::size(kMovements)) {
    return Command(kUnknown, Frame());
  }
  const Movement& movement = kMovements[direction];
  return Command(ThreeByteMove(movement, speed), PelcoMove(movement, speed));
}

std::string CPtzCommandBuilder::LensCommand(u32 code) const {
  Frame frame;
  for (const Lens& lens : kLens) {
    if (lens.code == code) {
      lens.set(frame);
      return Command(lens.message, frame);
    }
  }
  return Command(kUnknown, frame);
}

std::string CPtzCommandBuilder::StopCommand() const { return Command(kStop, Frame()); }

std::string CPtzCommandBuilder::AutoFocusCommand() const {
  return Command(kAutoFocus, PelcoExtended(Frame::ExtendedAutoFocus));
}

std::string CPtzCommandBuilder::AutoIrisCommand() const {
  return Command(kAutoIris, PelcoExtended(Frame::ExtendedAutoIris));
}

std::string CPtzCommandBuilder::PresetCommand(PresetOperation operation, u32 slot) const {
  // Pelco-D's presets count from 1. A slot beyond the last one, which only a strange preset file can name, must not
  // wrap around to another preset: 0 is none, and leaves the stop frame.
  const u8 preset = slot < Frame::kMaxPreset ? static_cast<u8>(slot + 1) : 0;
  Frame frame;
  switch (operation) {
    case PresetDelete:
      frame.SetPreset(Frame::ExtendedClearPreset, preset);
      return Command(kDeleteAllPresets, frame);
    case PresetStore:
      frame.SetPreset(Frame::ExtendedStorePreset, preset);
      return Command(kStorePreset, frame);
    case PresetGoto:
      break;
  }
  frame.SetPreset(Frame::ExtendedGotoPreset, preset);
  return Command(WithHex("41", slot) + "00", frame);
}

}  // namespace sarnevo
