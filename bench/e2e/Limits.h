#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kolvex_bench {

/// What the library may take at most.
struct Limits {
  double packetPathRatio = 1.5;         ///< up to the whole frame, processor time against the bare receiver
  double callsPerPacket = 1.1;          ///< receives and polls: one, and what the workers do once a second
  double pacedRatio = 0.8;              ///< the same of packets that come one after another, up to OnFrame
  double pacedWaitsPerPacket = 0.25;    ///< sleeps and waits in the receive; the bare receiver has about one
  double pacedCallsPerPacket = 1.3;     ///< receives: one for each packet, and a look before each wait
  double allocationsPerPacket = 0.001;  ///< none; a worker may take something once in a while
};

/// One sentence for each limit that the results of Compare pass. Throws std::runtime_error when they can't be judged.
std::vector<std::string> Violations(const nlohmann::json& rows, const Limits& limits);

}  // namespace kolvex_bench
