#pragma once

namespace kolvex_bench {

/// Has the system cut large UDP datagrams (UDP_SEGMENT) before they go through the loopback, as it does in front of a
/// network card that can't; else they stay whole up to the receiving socket.
/// @return false, with nothing changed, when that isn't allowed, or when this isn't a network namespace of its own
bool CutEarly(bool on);

}  // namespace kolvex_bench
