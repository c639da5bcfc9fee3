#pragma once

#include <string>

#include "Credentials.h"
#include "Failure.h"
#include "kolvex/Types.h"

namespace kolvex_host {

/// The library tells that it has recognised no camera at an address, but not why. A person wants to know
/// whether cable, password or address is wrong, so the host looks for itself: it connects, asks for the first
/// page of the web server and goes by the status. Takes up to 3 seconds.
Failure WhyNoCamera(const std::string& address, sarnevo::u16 port, const Login& login);

/// The sentence for credentials that the camera doesn't take.
Failure WrongLogin(const std::string& place);

/// The IPv4 address of a dotted address or name. Throws Failure (ExitCode::Camera) when the name isn't known.
std::string ResolveAddress(const std::string& name);

}  // namespace kolvex_host
