#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// The local UDP ports that the CUDPPorts of this library hold at the moment, in host byte order, so that a
/// search for a free one needn't ask the system about each of them again: hundreds of channels that start
/// together would otherwise try each other's ports, which takes time by the square of their number.
///
/// A port that is reported as held is bound, or was a moment ago. One that isn't may be taken all the same, by
/// another process, another copy of the library or another kind of socket; only a bind shows it.
///
/// Any thread may call; lock-free. Whoever has seen a port's Close return finds it not held.
namespace held_ports {

/// After a successful bind.
void Add(u16 port) noexcept;
/// Before the socket is closed.
void Remove(u16 port) noexcept;
bool Contains(u16 port) noexcept;

}  // namespace held_ports

}  // namespace sarnevo
