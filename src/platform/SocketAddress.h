#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct sockaddr_in;

namespace sarnevo::platform {

/// An IPv4 address and port, in the system's own 16-byte form.
class SocketAddress {
 public:
  /// All local addresses, port 0.
  SocketAddress() noexcept;
  /// All local addresses (INADDR_ANY).
  static SocketAddress Any(std::uint16_t port) noexcept;
  /// An IPv4 address as inet_addr reads it: "10.0.0.1", also with leading zeros (octal) and in the short forms
  /// ("127.1"), as people type it and as HTTP clients take it. No name is resolved, and 255.255.255.255 is none.
  static std::optional<SocketAddress> Parse(const char* dotted, std::uint16_t port) noexcept;
  /// The addresses of a host's name with @p port, in the order of the system's resolver; none when the name is unknown.
  /// Blocks for as long as the resolver likes, which can't be interrupted. Any thread. May throw std::bad_alloc.
  static std::vector<SocketAddress> Resolve(const std::string& name, std::uint16_t port);

  /// Host byte order.
  std::uint16_t Port() const noexcept;

  const sockaddr_in* Get() const noexcept;
  sockaddr_in* Get() noexcept;

 private:
  alignas(8) std::array<std::byte, 16> storage_{};
};

}  // namespace sarnevo::platform
