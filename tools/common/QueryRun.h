#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "Capabilities.h"
#include "Credentials.h"
#include "Library.h"
#include "StopSignal.h"

namespace kolvex_host {

/// What a query is to ask.
struct QueryOptions {
  std::string address;  ///< dotted IPv4
  sarnevo::u16 port = 80;
  Login login;
  bool ntsc = false;
  std::chrono::milliseconds timeout{30'000};
};

/// Asks the library what stands at an address: Init, Start, the observer, Uninit.
///
/// Throws Failure: ExitCode::Login for wrong credentials, ExitCode::Camera when nobody answers, when what
/// answers is no camera of the family, when a reply can't be used, when the time is up, and on a stop signal.
Capabilities RunQuery(std::shared_ptr<Library> library, const QueryOptions& options, StopSignal& stop);

}  // namespace kolvex_host
