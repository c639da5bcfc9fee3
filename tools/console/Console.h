#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Library.h"
#include "ProgramEnd.h"
#include "camera/LiveKeeper.h"
#include "camera/Store.h"

namespace kolvex_console {

/// What a console is to serve, and where.
struct ConsoleOptions {
  std::vector<KnownCamera> cameras;  ///< beside those of the folder
  std::filesystem::path folder;      ///< empty: what is added in the page is gone at the end
  std::vector<std::string> listen;   ///< ADDRESS:PORT; empty: sockets that were handed over, or 127.0.0.1:8088
  std::set<std::string> names;       ///< host names that the server is known by
  std::filesystem::path login;       ///< the login file; empty: that of the folder, if there is one
  std::string simulator;             ///< control of the simulated cameras; empty: real ones
};

/// The login file of a console: the one that is named, or the folder's.
std::filesystem::path LoginPath(const ConsoleOptions& options);

/// Serves until the stop signal. @p ready gets the URLs once connections are taken. Throws Failure.
void RunConsole(std::shared_ptr<kolvex_host::Library> library, const ConsoleOptions& options,
                kolvex_host::StopSignal& stop,
                const std::function<void(const std::vector<std::string>& urls)>& ready);

}  // namespace kolvex_console
