#include "platform/SocketAddress.h"

#include <cstring>
#include <memory>
#include <new>

#include <arpa/inet.h>
#include <netdb.h>
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

std::vector<SocketAddress> SocketAddress::Resolve(const std::string& name, std::uint16_t port) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &wanted, &list) != 0) {
    return {};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
  std::vector<SocketAddress> found;
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_family == AF_INET && entry->ai_addrlen == sizeof(sockaddr_in)) {
      sockaddr_in named{};
      std::memcpy(&named, entry->ai_addr, sizeof(named));
      found.push_back(Any(port));
      found.back().Get()->sin_addr = named.sin_addr;
    }
  }
  return found;
}

std::uint16_t SocketAddress::Port() const noexcept { return ntohs(Get()->sin_port); }

const sockaddr_in* SocketAddress::Get() const noexcept {
  return std::launder(reinterpret_cast<const sockaddr_in*>(storage_.data()));
}

sockaddr_in* SocketAddress::Get() noexcept {
  return std::launder(reinterpret_cast<sockaddr_in*>(storage_.data()));
}

}  // namespace sarnevo::platform
