#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kolvex/Types.h"

namespace kolvex_bench {

/// What is streamed. The same for sender and receivers.
struct Plan {
  int streams = 1;
  int framesPerSecond = 25;
  std::size_t frameBytes = 40'000;  ///< of a JPEG frame and an MPEG-4 key frame
  bool mixed = false;               ///< every second stream is MPEG-4, one key frame a second
  /// The packets of a frame enter the network one by one, so that a receiver may wake up for each. Else all but
  /// the last come at once, as one large datagram that the kernel cuts (UDP_SEGMENT).
  bool oneByOne = false;
};

constexpr int kMaxStreams = 500;

/// Of camera @p index, counted from 0; 127.1.0.1 is the first.
std::string CameraAddress(int index);
int CameraIndex(std::uint32_t address);

inline std::uint32_t CodecOf(const Plan& plan, int index) {
  return plan.mixed && index % 2 == 1 ? sarnevo::CodecMPEG4 : sarnevo::CodecMJPEG;
}

}  // namespace kolvex_bench
