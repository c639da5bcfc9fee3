#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kolvex_console {

/// A listening socket, owned by whoever holds the descriptor.
struct Listening {
  int descriptor = -1;
  std::string url;  ///< for people, "http://127.0.0.1:8088/"
  bool isLoopback = false;
};

/// Opens "ADDRESS:PORT" or "[ADDRESS]:PORT"; names aren't resolved. Port 0 takes any free one. Throws Failure:
/// ExitCode::Usage for another form, ExitCode::Output with the system's reason (a port that is taken).
Listening OpenListening(std::string_view place);

/// The sockets that the process was started with, as systemd hands them over: LISTEN_FDS of them from
/// descriptor 3 up, when LISTEN_PID is this process. Takes them: the variables are gone afterwards. Throws
/// Failure (ExitCode::Usage) when one isn't a listening TCP socket.
std::vector<Listening> TakeHandedOver();

}  // namespace kolvex_console
