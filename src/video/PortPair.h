#pragma once

#include <optional>

#include "kolvex/Types.h"

namespace sarnevo {

class CRTCPReporter;
class CUDPPort;

/// The local UDP ports of one stream, in host byte order.
struct PortPair {
  u16 rtp = 0;
  u16 rtcp = 0;  ///< the one behind rtp
};

/// Opens @p port on the first free local port from 3556 up, on all local addresses, and starts @p reporter on
/// the one behind it. Nothing when 4556 is reached; the port is then closed.
///
/// The search knows nothing of other channels: their ports show by refusing the bind.
std::optional<PortPair> OpenPortPair(CUDPPort& port, CRTCPReporter& reporter) noexcept;

}  // namespace sarnevo
