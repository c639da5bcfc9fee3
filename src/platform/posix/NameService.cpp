#include "platform/NameService.h"

#include <cstring>
#include <memory>

#include <netdb.h>
#include <netinet/in.h>

namespace sarnevo::platform {

std::vector<SocketAddress> ResolveName(const std::string& name, std::uint16_t port) {
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
      SocketAddress address = SocketAddress::Any(port);
      sockaddr_in named{};
      std::memcpy(&named, entry->ai_addr, sizeof(named));
      address.Get()->sin_addr = named.sin_addr;
      found.push_back(address);
    }
  }
  return found;
}

}  // namespace sarnevo::platform
