#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kolvex/Types.h"

namespace kolvex_bench {

/// How the packets of a frame, but the last, come to the receiver.
enum class Arrival {
  Burst,     ///< faster than they can be taken, so that they wait in the socket
  OneByOne,  ///< each by a call of its own, so that a receiver may fall asleep in front of each
  Paced,     ///< as cameras send them: at a distance, the streams between each other
  Joined,  ///< as one large datagram, which a receiver may take whole (UDP_GRO); others get it cut at the socket
};

/// What is streamed. The same for sender and receivers.
struct Plan {
  int streams = 1;
  int framesPerSecond = 25;
  std::size_t frameBytes = 40'000;  ///< of a JPEG frame and an MPEG-4 key frame
  bool mixed = false;               ///< every second stream is MPEG-4, one key frame a second
  Arrival arrival = Arrival::Burst;
  int distanceUs = 0;  ///< paced: between two packets of a frame
};

constexpr int kMaxStreams = 500;

/// Of camera @p index, counted from 0; 127.1.0.1 is the first.
std::string CameraAddress(int index);
int CameraIndex(std::uint32_t address);

inline std::uint32_t CodecOf(const Plan& plan, int index) {
  return plan.mixed && index % 2 == 1 ? sarnevo::CodecMPEG4 : sarnevo::CodecMJPEG;
}

}  // namespace kolvex_bench
