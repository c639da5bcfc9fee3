#include "ptz/CPelcoDPtzCommand.h"

#include <cstddef>
#include <numeric>

namespace sarnevo {

namespace {

// Places in the frame.
enum : std::size_t { Sync, Address, Command1, Command2, Data1, Data2, Checksum };

constexpr u8 kSync = 0xFF;
constexpr u8 kAddress = 1;  // a camera has one head

// Bits of command 1.
constexpr u8 kFocusNear = 0x01;
constexpr u8 kIrisOpen = 0x02;
constexpr u8 kIrisClose = 0x04;

// Bits of command 2.
constexpr u8 kPanRight = 0x02;
constexpr u8 kPanLeft = 0x04;
constexpr u8 kTiltUp = 0x08;
constexpr u8 kTiltDown = 0x10;
constexpr u8 kZoomTele = 0x20;
constexpr u8 kZoomWide = 0x40;
constexpr u8 kFocusFar = 0x80;

// Sets one bit of two and clears the other: a head is free to take both directions of an axis for anything.
void Choose(u8& byte, bool first, u8 one, u8 other) noexcept {
  byte = static_cast<u8>((byte & ~(one | other)) | (first ? one : other));
}

}  // namespace

void CPelcoDPtzCommand::Reset() noexcept { frame_ = {kSync, kAddress, 0, 0, 0, 0, 0}; }

void CPelcoDPtzCommand::UpdateChecksum() noexcept {
  frame_[Checksum] = static_cast<u8>(std::accumulate(frame_.begin() + Address, frame_.begin() + Checksum, 0U));
}

void CPelcoDPtzCommand::ClearMotion() noexcept {
  frame_[Command1] = 0;
  frame_[Command2] = 0;
}

void CPelcoDPtzCommand::SetPan(u8 right, u8 speed) noexcept {
  Choose(frame_[Command2], right != 0, kPanRight, kPanLeft);
  frame_[Data1] = speed;
}

void CPelcoDPtzCommand::SetTilt(u8 up, u8 speed) noexcept {
  Choose(frame_[Command2], up != 0, kTiltUp, kTiltDown);
  frame_[Data2] = speed;
}

void CPelcoDPtzCommand::SetZoom(u8 tele) noexcept { Choose(frame_[Command2], tele != 0, kZoomTele, kZoomWide); }

void CPelcoDPtzCommand::SetFocus(u8 far) noexcept {
  // The one axis whose two bits lie in different bytes.
  Choose(frame_[Command1], far == 0, kFocusNear, 0);
  Choose(frame_[Command2], far != 0, kFocusFar, 0);
}

void CPelcoDPtzCommand::SetIris(u8 open) noexcept {
  Choose(frame_[Command1], open != 0, kIrisOpen, kIrisClose);
}

void CPelcoDPtzCommand::SetExtended(u8 command, u8 value) noexcept {
  ClearMotion();
  frame_[Command2] = command;
  frame_[Data1] = 0;
  frame_[Data2] = value;
}

void CPelcoDPtzCommand::SetPreset(u8 command, u8 preset) noexcept {
  if (preset >= 1 && preset <= kMaxPreset) {
    SetExtended(command, preset);
  }
}

std::string CPelcoDPtzCommand::ToHexString() {
  UpdateChecksum();
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const u8 byte : frame_) {
    text += {kDigits[byte >> 4], kDigits[byte & 0x0F]};
  }
  return text;
}

}  // namespace sarnevo
