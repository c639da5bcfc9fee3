#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kolvex_bench {

/// A TCP socket that listens at @p port of all addresses; the caller closes it. Throws std::runtime_error.
/// @param backlog  connections that it takes before they are accepted
inline int ListenOn(std::uint16_t port, int backlog = 1024) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in any{};
  any.sin_family = AF_INET;
  any.sin_port = htons(port);
  if (bind(listener, reinterpret_cast<sockaddr*>(&any), sizeof(any)) != 0 || listen(listener, backlog) != 0) {
    throw std::runtime_error("port " + std::to_string(port) + " is taken; run this in a namespace of its own");
  }
  return listener;
}

}  // namespace kolvex_bench
