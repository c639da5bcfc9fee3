#include "simcam/head/HeadProtocol.h"

namespace simcam {

Decoded DecodeFrame(HeadProtocol protocol, std::span<const std::uint8_t> frame) {
  switch (protocol) {
    case HeadProtocol::ThreeByte:
      return DecodeThreeByte(frame);
    case HeadProtocol::PelcoD:
      return DecodePelcoD(frame);
    case HeadProtocol::None:
      break;
  }
  return std::string("no head at the serial port");
}

}  // namespace simcam
