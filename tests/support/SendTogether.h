#pragma once

#include <cstdint>
#include <cstring>
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
  iovec data{bytes.data(), bytes.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(std::uint16_t))] = {};
  msghdr message{to.Get(), sizeof(sockaddr_in), &data, 1, control, sizeof(control), 0};
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = IPPROTO_UDP;
  part->cmsg_type = UDP_SEGMENT;
  part->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
  const auto size = static_cast<std::uint16_t>(each);
  std::memcpy(CMSG_DATA(part), &size, sizeof(size));
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const ssize_t sent = sendmsg(descriptor, &message, 0);
  close(descriptor);
  return sent == static_cast<ssize_t>(bytes.size());
}

}  // namespace kolvex_test
