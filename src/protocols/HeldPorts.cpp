#include "protocols/HeldPorts.h"

#include <array>
#include <atomic>

namespace sarnevo::held_ports {

namespace {

// Each port is independent of all others: what a stale flag costs is a bind that fails, or one not tried on a port that
// was just given back, as if the search had come a moment earlier. So relaxed order is enough.
//
// Two sockets on different local addresses may share a port; the flag then goes with the first that closes, and
// the next search asks the system.
std::array<std::atomic<bool>, 65'536> isHeld{};

}  // namespace

void Add(u16 port) noexcept { isHeld[port].store(true, std::memory_order_relaxed); }

void Remove(u16 port) noexcept { isHeld[port].store(false, std::memory_order_relaxed); }

bool Contains(u16 port) noexcept { return isHeld[port].load(std::memory_order_relaxed); }

}  // namespace sarnevo::held_ports
