#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hub/Site.h"

namespace kolvex_console {

/// The site in Prometheus' text format, version 0.0.4. @p kernelDrops: datagrams that the kernel dropped at this
/// process's sockets, of all cameras together; nothing where the system doesn't report it.
std::string MetricsText(const Site& site, std::size_t streams, std::optional<std::uint64_t> kernelDrops);

}  // namespace kolvex_console
