#pragma once

#include "io/Plan.h"

namespace kolvex_bench {

/// Cameras of group 1 on all addresses of the loopback network that answer each request with the states of
/// their inputs, all in one thread. Runs until the process is ended.
/// @param keepAlive  say so and keep the connection, when the request allows it; else close after each reply
/// @param ready      called once the cameras can be connected to
[[noreturn]] void ServeInputs(std::uint16_t port, bool keepAlive, Served& served, void (*ready)());

}  // namespace kolvex_bench
