#pragma once

#include <optional>

#include "kolvex/Types.h"

namespace sarnevo {

class CRTCPReporter;
class CUDPPort;

/// The UDP ports of one end of a stream, in host byte order. As a camera says them they may be any numbers.
struct PortPair {
  i32 rtp = 0;
  i32 rtcp = 0;
};

/// Opens @p port on the first free one of the local ports 3556, 3558 and so on, on all local addresses, and starts
/// @p reporter on the one after it. When the reporter can't start, the search goes on from that one. Nothing when 4556
/// is reached; the port is then closed.
///
/// Ports of other channels are passed over without asking the system (protocols/HeldPorts.h); any other that is
/// taken shows by refusing the bind. Nothing else is remembered: a port that somebody gives back is found again.
std::optional<PortPair> OpenPortPair(CUDPPort& port, CRTCPReporter& reporter) noexcept;

}  // namespace sarnevo
