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
  SocketAddress parsed = Any(port);
  if (dotted == nullptr || inet_pton(AF_INET, dotted, &parsed.Get()->sin_addr) != 1) {
    return std::nullopt;
  }
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
