#include "web/Listen.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "Failure.h"
#include "Place.h"

namespace kolvex_console {

using kolvex_host::ExitCode;
using kolvex_host::Failure;

namespace {

constexpr int kFirstHandedOver = 3;
constexpr int kBacklog = 128;

union Address {
  sockaddr any;
  sockaddr_in four;
  sockaddr_in6 six;
};

std::optional<Address> Parse(std::string_view place) {
  const std::size_t colon = place.rfind(':');
  if (colon == place.npos) {
    return std::nullopt;
  }
  std::uint16_t port = 0;
  const char* const end = place.data() + place.size();
  const auto [stop, error] = std::from_chars(place.data() + colon + 1, end, port);
  if (error != std::errc() || stop != end) {
    return std::nullopt;
  }
  std::string host(place.substr(0, colon));
  Address address{};
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
    address.six.sin6_family = AF_INET6;
    address.six.sin6_port = htons(port);
    return inet_pton(AF_INET6, host.c_str(), &address.six.sin6_addr) == 1 ? std::optional(address)
                                                                          : std::nullopt;
  }
  address.four.sin_family = AF_INET;
  address.four.sin_port = htons(port);
  return inet_pton(AF_INET, host.c_str(), &address.four.sin_addr) == 1 ? std::optional(address) : std::nullopt;
}

int Number(const char* name) {
  const char* const text = std::getenv(name);
  int number = -1;
  if (text) {
    std::from_chars(text, text + std::strlen(text), number);
  }
  return number;
}

bool IsListening(int descriptor) {
  int accepts = 0;
  socklen_t size = sizeof accepts;
  return getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &accepts, &size) == 0 && accepts == 1;
}

/// What the socket says of itself; without an address for what isn't TCP.
Listening Describe(int descriptor) {
  Address address{};
  socklen_t size = sizeof address;
  std::array<char, INET6_ADDRSTRLEN> text{};
  Listening listening{.descriptor = descriptor, .url = {}, .isLoopback = false};
  if (getsockname(descriptor, &address.any, &size) != 0) {
    return listening;
  }
  if (address.any.sa_family == AF_INET) {
    inet_ntop(AF_INET, &address.four.sin_addr, text.data(), text.size());
    listening.isLoopback = (ntohl(address.four.sin_addr.s_addr) >> 24U) == IN_LOOPBACKNET;
    listening.url =
        std::string("http://") + text.data() + ":" + std::to_string(ntohs(address.four.sin_port)) + "/";
  } else if (address.any.sa_family == AF_INET6) {
    inet_ntop(AF_INET6, &address.six.sin6_addr, text.data(), text.size());
    listening.isLoopback = IN6_IS_ADDR_LOOPBACK(&address.six.sin6_addr) != 0;
    listening.url =
        std::string("http://[") + text.data() + "]:" + std::to_string(ntohs(address.six.sin6_port)) + "/";
  }
  return listening;
}

}  // namespace

Listening OpenListening(std::string_view place) {
  const auto address = Parse(place);
  if (!address) {
    throw Failure(ExitCode::Usage,
                  kolvex_host::Quoted(place) +
                      " is no address to listen at: it must be ADDRESS:PORT, like 127.0.0.1:8088.");
  }
  const bool six = address->any.sa_family == AF_INET6;
  const int descriptor = socket(address->any.sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  if (descriptor < 0 || setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      bind(descriptor, &address->any, six ? sizeof address->six : sizeof address->four) != 0 ||
      listen(descriptor, kBacklog) != 0) {
    const int error = errno;
    if (descriptor >= 0) {
      close(descriptor);
    }
    throw Failure(ExitCode::Output,
                  "The server can't listen at " + std::string(place) + ": " + std::strerror(error) + ".");
  }
  return Describe(descriptor);
}

std::vector<Listening> TakeHandedOver() {
  const int count = Number("LISTEN_PID") == getpid() ? Number("LISTEN_FDS") : 0;
  unsetenv("LISTEN_PID");
  unsetenv("LISTEN_FDS");
  unsetenv("LISTEN_FDNAMES");
  std::vector<Listening> sockets;
  for (int i = 0; i < count; ++i) {
    const int descriptor = kFirstHandedOver + i;
    Listening listening = Describe(descriptor);
    if (!IsListening(descriptor) || listening.url.empty()) {
      throw Failure(ExitCode::Usage, "The descriptor " + std::to_string(descriptor) +
                                         " of LISTEN_FDS is no listening TCP socket.");
    }
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    sockets.push_back(std::move(listening));
  }
  return sockets;
}

}  // namespace kolvex_console
