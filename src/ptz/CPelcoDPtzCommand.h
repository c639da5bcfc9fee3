#pragma once

#include <array>
#include <string>

#include "kolvex/Types.h"

namespace sarnevo {

/// One frame of Pelco-D, the serial protocol of many PTZ heads: sets bits by their meaning and gives the
/// frame as hexadecimal text.
///
///       0      1         2          3         4        5         6
///   +------+---------+---------+---------+--------+--------+----------+
///   | 0xFF | address | command | command | data 1 | data 2 | checksum |
///   |      |  = 1    |    1    |    2    |  pan   |  tilt  |          |
///   +------+---------+---------+---------+--------+--------+----------+
///
/// A plain value: one thread at a time. Operations of different axes combine on one frame (pan and tilt make a
/// diagonal), those of one axis replace each other.
class CPelcoDPtzCommand {
 public:
  /// Extended commands, which take the place of the motion bits.
  enum Extended : u8 {
    ExtendedStorePreset = 0x03,
    ExtendedClearPreset = 0x05,
    ExtendedGotoPreset = 0x07,
    ExtendedFocusSpeed = 0x27,
    ExtendedAutoFocus = 0x2B,  // value 0: automatic
    ExtendedAutoIris = 0x2D,   // value 0: automatic
  };

  /// Highest preset number; the lowest is 1.
  static constexpr u8 kMaxPreset = 32;

  /// A stop frame.
  CPelcoDPtzCommand() noexcept { Reset(); }
  CPelcoDPtzCommand(const CPelcoDPtzCommand&) = default;
  CPelcoDPtzCommand& operator=(const CPelcoDPtzCommand&) = default;
  virtual ~CPelcoDPtzCommand() = default;

  /// Back to a stop frame.
  void Reset() noexcept;
  void UpdateChecksum() noexcept;
  /// Clears all motion and lens bits; the speeds stay.
  void ClearMotion() noexcept;

  // Not 0 chooses the direction that the parameter is named after, 0 the opposite one. Speeds go out as
  // they are; CPtzCommandBuilder has put them on this protocol's scale.
  void SetPan(u8 right, u8 speed) noexcept;
  void SetTilt(u8 up, u8 speed) noexcept;
  void SetZoom(u8 tele) noexcept;
  void SetFocus(u8 far) noexcept;
  void SetIris(u8 open) noexcept;

  /// Replaces everything that was set before.
  void SetExtended(u8 command, u8 value) noexcept;
  /// An extended command on preset 1 to kMaxPreset; with any other number the frame stays as it is.
  void SetPreset(u8 command, u8 preset) noexcept;

  /// The whole frame with its checksum, 14 upper-case digits.
  std::string ToHexString();

 private:
  std::array<u8, 7> frame_;
};

}  // namespace sarnevo
