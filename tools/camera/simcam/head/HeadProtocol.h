#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace simcam {

/// What a serial frame asks of the head.
struct HeadCommand {
  enum class Kind : std::uint8_t {
    Drive,      ///< move as said below; what isn't named stands still
    FocusStop,  ///< only the focus stands still
    AutoFocus,
    AutoIris,
    Store,        ///< the position at preset `number`
    Recall,       ///< go to preset `number`
    Clear,        ///< forget preset `number`
    StoreAtLast,  ///< the position at the preset last gone to
    ClearAll,
  };
  Kind kind = Kind::Drive;
  double pan = 0;   ///< -1 full speed left to 1 full speed right
  double tilt = 0;  ///< -1 full speed down to 1 full speed up
  int zoom = 0;     ///< 1 in, -1 out
  int focus = 0;    ///< 1 far, -1 near
  int iris = 0;     ///< 1 open, -1 close
  unsigned number = 0;

  bool operator==(const HeadCommand&) const = default;
};

/// A command, or what is wrong with the frame.
using Decoded = std::variant<HeadCommand, std::string>;

enum class HeadProtocol : std::uint8_t { None = 0, ThreeByte = 1, PelcoD = 2 };

/// Decodes one frame of the protocol, which must be all that was written. Strict: whatever the head's manual
/// doesn't name is an error, as the head wouldn't react to it.
Decoded DecodeFrame(HeadProtocol protocol, std::span<const std::uint8_t> frame);

Decoded DecodeThreeByte(std::span<const std::uint8_t> frame);
Decoded DecodePelcoD(std::span<const std::uint8_t> frame);

}  // namespace simcam
