#pragma once

#include "platform/Time.h"

/// How long a stop waits, for each kind of thread, before it lets the thread go or interrupts it (StoppableThread). The
/// owners take these values by default; tests give them shorter ones.
///
/// Three kinds have no row. A channel's worker gets twice the time that its stream may give no frame (ChannelTiming). The
/// receive thread and the PTZ thread are waited for without a limit (docs/stopping.md).
namespace sarnevo::stop_patience {

/// Inputs and outputs, each.
constexpr platform::Milliseconds kDigitalIO{5'000};
constexpr platform::Milliseconds kReporter{10'000};
constexpr platform::Milliseconds kQuery{10'000};
/// A query whose answer is known; its thread may still be in the observer when the host begins the next one.
constexpr platform::Milliseconds kAnsweredQuery{50};
/// A thread that is still there when its object goes: its owner hasn't stopped it.
constexpr platform::Milliseconds kForgotten{2'000};
/// No thread: the camera's answers to PAUSE and TEARDOWN, each as a whole.
constexpr platform::Milliseconds kFarewell{5'000};

}  // namespace sarnevo::stop_patience
