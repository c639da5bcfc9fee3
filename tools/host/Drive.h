#pragma once

#include "HeadSession.h"
#include "ProgramEnd.h"

namespace kolvex_host {

/// Moves a head by keys of the terminal until q, a stop signal, or the loss of the terminal. A key that is
/// held repeats; when the repeats end the head stops. Leaves the stop at the end to HeadSession::Finish.
/// Throws Failure.
void Drive(HeadSession& head, StopSignal& stop, sarnevo::i32 speed);

/// The keys, for people.
extern const char* const kDriveKeys;

}  // namespace kolvex_host
