#include "platform/SocketAddress.h"

#include <cstring>
#include <new>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace sarnevo::platform {

static_assert(sizeof(sockaddr_in) == 16);

SocketAddress::SocketAddress() noexcept {
  auto* const address = new (storage_.data()) sockaddr_in{};
  address->sin_family = AF_INET;
}

SocketAddress SocketAddress::Any(std::uint16_t port) noexcept {
  SocketAddress any;
  any.Get()->sin_port = htons(port);
  return any;
}

std::optional<SocketAddress> SocketAddress::Parse(const char* dotted, std::uint16_t port) noexcept {
  const in_addr_t address = dotted != nullptr ? inet_addr(dotted) : INADDR_NONE;
  if (address == INADDR_NONE) {
    return std::nullopt;
  }
  SocketAddress parsed = Any(port);
  parsed.Get()->sin_addr.s_addr = address;
  return parsed;
}

std::uint16_t SocketAddress::Port() const noexcept { return ntohs(Get()->sin_port); }

const sockaddr_in* SocketAddress::Get() const noexcept {
  return std::launder(reinterpret_cast<const sockaddr_in*>(storage_.data()));
}

sockaddr_in* SocketAddress::Get() noexcept {
  return std::launder(reinterpret_cast<sockaddr_in*>(storage_.data()));
}

}  // namespace sarnevo::platform
