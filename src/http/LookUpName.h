#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "http/HttpError.h"
#include "platform/Event.h"
#include "platform/SocketAddress.h"
#include "platform/Time.h"

namespace Web {

/// Finds the addresses of a server that is given by name; a dotted one is its own.
///
/// The system's resolver can't be interrupted, so it is asked on a thread of its own. When that takes longer than the
/// caller can wait, the thread is left alone: it shares what it works on, keeps the library loaded, and ends when the
/// resolver gives up by its own limits.
///
/// @param timeout  of the wait
/// @param cancel   ends the wait at once
/// @param found    empty; gets at least one address when the result is None, and none otherwise
/// @return None, Cancelled, TimedOut, NameNotResolved or OutOfResources
HttpError LookUpName(const std::string& name, std::uint16_t port, sarnevo::platform::Milliseconds timeout,
                     sarnevo::platform::Event& cancel, std::vector<sarnevo::platform::SocketAddress>& found);

}  // namespace Web
