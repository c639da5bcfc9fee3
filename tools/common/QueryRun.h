#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "Capabilities.h"
#include "Credentials.h"
#include "Library.h"
#include "Place.h"

namespace kolvex_host {

/// What a query is to ask.
struct QueryOptions {
  Place place;
  Login login;
  bool ntsc = false;
  std::chrono::milliseconds timeout{8000};
};

/// Waits for up to the given time; true ends what is waited for. Called about 50 times a second.
using Waits = std::function<bool(std::chrono::milliseconds)>;

/// Runs @p step on a thread of its own while @p wait is called. False when that ended it; the step is then asked to
/// stop and has ended.
bool Beside(const std::function<void(std::stop_token)>& step, const Waits& wait);

/// Asks the library what is at an address: Init, Start, the observer, Uninit. The library has one query at a
/// time; so call it on one thread at a time. Looks first whether anybody is there, and afterwards why there is no
/// good answer, so that it takes up to 6 seconds more than the time-out.
///
/// Throws Failure: ExitCode::Login for wrong credentials, ExitCode::Camera when nobody answers, when what
/// answers is no camera of the family, when a reply can't be used, when the time is up, and when @p wait ends it.
Capabilities RunQuery(std::shared_ptr<Library> library, const QueryOptions& options, const Waits& wait);

}  // namespace kolvex_host
