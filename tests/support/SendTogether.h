#pragma once

#include <cstdint>
#include <span>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/SocketAddress.h"

namespace kolvex_test {

/// Sends @p bytes as datagrams of @p each bytes that stay together on the way (UDP_SEGMENT). False where the system
/// can't.
inline bool SendTogether(sarnevo::platform::SocketAddress to, std::span<std::uint8_t> bytes, std::size_t each) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int size = static_cast<int>(each);
  const bool can = setsockopt(descriptor, IPPROTO_UDP, UDP_SEGMENT, &size, sizeof(size)) == 0;
  const ssize_t sent = sendto(descriptor, bytes.data(), bytes.size(), 0,
                              reinterpret_cast<const sockaddr*>(to.Get()), sizeof(sockaddr_in));
  close(descriptor);
  return can && sent == static_cast<ssize_t>(bytes.size());
}

}  // namespace kolvex_test
