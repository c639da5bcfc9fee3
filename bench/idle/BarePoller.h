#pragma once

#include <cstdint>
#include <string>

namespace kolvex_bench {

/// Polls the inputs of a camera for ever at the library's pace, in a thread of its own with nothing but system calls:
/// connect unless connected, send, receive, close unless the camera keeps the connection.
void PollBare(const std::string& address, std::uint16_t port, bool keepsConnections);

}  // namespace kolvex_bench
