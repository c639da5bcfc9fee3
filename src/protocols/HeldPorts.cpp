#include "protocols/HeldPorts.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace sarnevo::held_ports {

namespace {

constexpr std::size_t kBitsPerWord = 64;

// One bit for each port, independent of all others: what a stale one costs is a bind that fails, or one not tried
// on a port that was just given back, as if the search had come a moment earlier. So relaxed order is enough.
//
// Two sockets on different local addresses may share a port; the bit then goes with the first that closes, and
// the next search asks the system.
std::array<std::atomic<u64>, 65'536 / kBitsPerWord> words{};

std::atomic<u64>& WordOf(u16 port) noexcept { return words[port / kBitsPerWord]; }

u64 BitOf(u16 port) noexcept { return u64{1} << port % kBitsPerWord; }

}  // namespace

void Add(u16 port) noexcept { WordOf(port).fetch_or(BitOf(port), std::memory_order_relaxed); }

void Remove(u16 port) noexcept { WordOf(port).fetch_and(~BitOf(port), std::memory_order_relaxed); }

bool Contains(u16 port) noexcept { return (WordOf(port).load(std::memory_order_relaxed) & BitOf(port)) != 0; }

}  // namespace sarnevo::held_ports
