#include "simcam/base/Text.h"
#include "simcam/head/HeadProtocol.h"

namespace simcam {

namespace {

constexpr unsigned kPresets = 32;
constexpr unsigned kTurbo = 64;  // one above the ordinary range of 0 to 63; heads take it for full speed

// One bit for each way of an axis; both at once contradict each other.
bool Direction(unsigned bits, unsigned plus, unsigned minus, int& into) {
  const bool forward = (bits & plus) != 0;
  const bool back = (bits & minus) != 0;
  into = forward ? 1 : back ? -1 : 0;
  return !(forward && back);
}

Decoded DecodeMotion(unsigned command1, unsigned command2, unsigned panSpeed, unsigned tiltSpeed) {
  // Bits in one word: command 1 in the upper half.
  const unsigned bits = command1 << 8U | command2;
  constexpr unsigned kKnown = 0x07FE;
  int pan = 0;
  int tilt = 0;
  HeadCommand command;
  if ((bits & ~kKnown) != 0) {
    return Format("unknown command %02X %02X", command1, command2);
  }
  if (!Direction(bits, 0x0002, 0x0004, pan) || !Direction(bits, 0x0008, 0x0010, tilt) ||
      !Direction(bits, 0x0020, 0x0040, command.zoom) || !Direction(bits, 0x0080, 0x0100, command.focus) ||
      !Direction(bits, 0x0200, 0x0400, command.iris)) {
    return Format("command %02X %02X asks for both ways at once", command1, command2);
  }
  if (panSpeed > kTurbo || tiltSpeed > kTurbo || (pan == 0 && panSpeed != 0) || (tilt == 0 && tiltSpeed != 0)) {
    return Format("speeds %u and %u don't belong to command %02X %02X", panSpeed, tiltSpeed, command1,
                  command2);
  }
  command.pan = pan * static_cast<double>(panSpeed) / kTurbo;
  command.tilt = tilt * static_cast<double>(tiltSpeed) / kTurbo;
  return command;
}

Decoded DecodeExtended(unsigned command2, unsigned data1, unsigned data2) {
  HeadCommand command;
  command.number = data2;
  const bool isPreset = data2 >= 1 && data2 <= kPresets;
  if (data1 == 0 && command2 == 0x03 && isPreset) {
    command.kind = HeadCommand::Kind::Store;
  } else if (data1 == 0 && command2 == 0x05 && isPreset) {
    command.kind = HeadCommand::Kind::Clear;
  } else if (data1 == 0 && command2 == 0x07 && isPreset) {
    command.kind = HeadCommand::Kind::Recall;
  } else if (data1 == 0 && command2 == 0x27 && data2 == 0) {
    command.kind = HeadCommand::Kind::FocusStop;
  } else if (data1 == 0 && command2 == 0x2B && data2 == 0) {
    command.kind = HeadCommand::Kind::AutoFocus;
  } else if (data1 == 0 && command2 == 0x2D && data2 == 0) {
    command.kind = HeadCommand::Kind::AutoIris;
  } else {
    return Format("unknown extended command %02X %02X %02X", command2, data1, data2);
  }
  return command;
}

}  // namespace

// FF, address, command 1, command 2, data 1, data 2, checksum: the sum of bytes 1 to 5 modulo 256.
Decoded DecodePelcoD(std::span<const std::uint8_t> frame) {
  if (frame.size() != 7) {
    return Format("a frame has 7 bytes, not %zu", frame.size());
  }
  if (frame[0] != 0xFF) {
    return Format("the frame begins with %02X, not FF", frame[0]);
  }
  unsigned sum = 0;
  for (const std::uint8_t byte : frame.subspan(1, 5)) {
    sum += byte;
  }
  if ((sum & 0xFFU) != frame[6]) {
    return Format("checksum %02X, not %02X", frame[6], sum & 0xFFU);
  }
  if (frame[1] != 1) {
    return Format("address %u, this head is 1", frame[1]);
  }
  const bool extended = frame[2] == 0 && (frame[3] & 1U) != 0;
  return extended ? DecodeExtended(frame[3], frame[4], frame[5])
                  : DecodeMotion(frame[2], frame[3], frame[4], frame[5]);
}

}  // namespace simcam
