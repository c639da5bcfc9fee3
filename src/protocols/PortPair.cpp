#include "protocols/PortPair.h"

#include "protocols/CRTCPReporter.h"
#include "protocols/CUDPPort.h"
#include "protocols/HeldPorts.h"

namespace sarnevo {

namespace {

constexpr u16 kFirstPort = 3556;
constexpr u16 kEndOfPorts = 4556;  // the first that isn't tried

}  // namespace

std::optional<PortPair> OpenPortPair(CUDPPort& port, CRTCPReporter& reporter) noexcept {
  u16 candidate = kFirstPort;
  while (candidate < kEndOfPorts) {
    // The bind of a port that this library holds is known to fail.
    if (held_ports::Contains(candidate) || port.Open(nullptr, candidate) != CUDPPort::Opened) {
      candidate = static_cast<u16>(candidate + 2);
      continue;
    }
    const auto next = static_cast<u16>(candidate + 1);
    if (reporter.Start(next)) {
      return PortPair{candidate, next};
    }
    port.Close();
    candidate = next;
  }
  return std::nullopt;
}

}  // namespace sarnevo
