#include <array>

#include "simcam/base/Text.h"
#include "simcam/head/HeadProtocol.h"

namespace simcam {

namespace {

struct Move {
  std::uint8_t command;
  int pan, tilt;  // direction
};
constexpr std::array kMoves = {
    Move{0x02, -1, 0}, Move{0x01, 1, 0}, Move{0x04, 0, 1},   Move{0x08, 0, -1},
    Move{0x06, -1, 1}, Move{0x05, 1, 1}, Move{0x0A, -1, -1}, Move{0x09, 1, -1},
};

struct Fixed {
  std::uint8_t command, data;
  HeadCommand meaning;
};
constexpr HeadCommand Of(HeadCommand::Kind kind, int zoom = 0, int focus = 0, int iris = 0) {
  return {kind, 0, 0, zoom, focus, iris, 0};
}
constexpr std::array kFixed = {
    Fixed{0x10, 0xFF, Of(HeadCommand::Kind::Drive, 1)},
    Fixed{0x20, 0xFF, Of(HeadCommand::Kind::Drive, -1)},
    Fixed{0x40, 0xFF, Of(HeadCommand::Kind::Drive, 0, 1)},
    Fixed{0x80, 0xFF, Of(HeadCommand::Kind::Drive, 0, -1)},
    Fixed{0x00, 0x01, Of(HeadCommand::Kind::Drive, 0, 0, -1)},
    Fixed{0x00, 0x00, Of(HeadCommand::Kind::Drive, 0, 0, 1)},
    Fixed{0x00, 0xFF, Of(HeadCommand::Kind::Drive)},
    Fixed{0x00, 0xD5, Of(HeadCommand::Kind::AutoFocus)},
    Fixed{0x00, 0xD4, Of(HeadCommand::Kind::AutoIris)},
    Fixed{0xFF, 0xF5, Of(HeadCommand::Kind::ClearAll)},
};

constexpr unsigned kSlots = 64;

std::string Unknown(std::span<const std::uint8_t> frame) {
  return Format("unknown message %02X %02X %02X", frame[0], frame[1], frame[2]);
}

// Data of a pan or tilt: bit 7 set, bit 6 clear, tilt speed in bits 3 to 5, pan speed in bits 0 to 2. The
// speed of an axis that doesn't move is 0. The slowest speed is 0 too, and does move.
Decoded DecodeMove(const Move& move, std::span<const std::uint8_t> frame) {
  const unsigned data = frame[2];
  const unsigned panSpeed = data & 7U;
  const unsigned tiltSpeed = data >> 3U & 7U;
  if ((data & 0xC0U) != 0x80U || (move.pan == 0 && panSpeed != 0) || (move.tilt == 0 && tiltSpeed != 0)) {
    return Format("speed %02X doesn't belong to movement %02X", frame[2], frame[1]);
  }
  HeadCommand command;
  command.pan = move.pan * (panSpeed + 1.0) / 8;
  command.tilt = move.tilt * (tiltSpeed + 1.0) / 8;
  return command;
}

}  // namespace

Decoded DecodeThreeByte(std::span<const std::uint8_t> frame) {
  if (frame.size() != 3) {
    return Format("a message has 3 bytes, not %zu", frame.size());
  }
  if (frame[0] == 0x41 && frame[1] < kSlots && frame[2] == 0x00) {
    HeadCommand command = Of(HeadCommand::Kind::Recall);
    command.number = frame[1];
    return command;
  }
  if (frame[0] == 0x81 && frame[1] == 0x05 && frame[2] == 0x70) {
    return Of(HeadCommand::Kind::StoreAtLast);
  }
  if (frame[0] != 0x01) {
    return Unknown(frame);
  }
  for (const Move& move : kMoves) {
    if (move.command == frame[1]) {
      return DecodeMove(move, frame);
    }
  }
  for (const Fixed& fixed : kFixed) {
    if (fixed.command == frame[1] && fixed.data == frame[2]) {
      return fixed.meaning;
    }
  }
  return Unknown(frame);
}

}  // namespace simcam
