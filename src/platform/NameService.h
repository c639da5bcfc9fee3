#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/SocketAddress.h"

namespace sarnevo::platform {

/// The IPv4 addresses of a host's name with @p port, in the order of the system's resolver; none when the name is
/// unknown. Blocks for as long as the resolver likes, which can't be interrupted. Any thread. May throw bad_alloc.
std::vector<SocketAddress> ResolveName(const std::string& name, std::uint16_t port);

}  // namespace sarnevo::platform
