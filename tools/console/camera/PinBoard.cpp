#include "camera/PinBoard.h"

#include <algorithm>
#include <chrono>

#include "Failure.h"

namespace kolvex_console {

using namespace sarnevo;
using kolvex_host::Failure;
using nlohmann::json;
using std::chrono::milliseconds;

namespace {

/// An output that the camera doesn't take is usually heard of in this time.
constexpr milliseconds kSettle{300};
constexpr milliseconds kTick{20};

const char* Text(u32 state) { return state == IOStateLow ? "low" : state == IOStateHigh ? "high" : "unknown"; }

}  // namespace

PinBoard::PinBoard(const Link& link)
    : link_(link), inputs_(link.config.inputs), outputs_(link.config.outputs, IOStateUnknown) {}

void PinBoard::Start() {
  if (link_.config.inputs == 0) {
    return;
  }
  kolvex_host::CameraConfig watched = link_.config;
  watched.outputs = 0;
  inputDriver_.emplace(*link_.library, watched, link_.login, noFrames_, link_.DriverLog());
  ICaptureIOApi* const io = (*inputDriver_)->GetCaptureIO();
  if (!io || !io->SetCallback(&callback_) || !io->Start()) {
    throw Failure(kolvex_host::ExitCode::Refused,
                  "The driver refused the inputs of " + link_.config.name + ".");
  }
}

void PinBoard::Close() {
  outputDriver_.reset();
  inputDriver_.reset();
}

void PinBoard::TakeInput(u32 index, u32 state) {
  {
    const std::lock_guard guard(lock_);
    if (index >= inputs_.size() || inputs_[index].state == state) {
      return;
    }
    Input& input = inputs_[index];
    if (input.state != IOStateUnknown) {
      const auto now = std::chrono::system_clock::now().time_since_epoch();
      input.changed = std::chrono::duration_cast<milliseconds>(now).count();
      ++input.changes;
    }
    input.state = state;
  }
  link_.log("Input " + std::to_string(index + 1) + " is " + Text(state) + ".");
  link_.changed();
}

void PinBoard::TakeFailure() {
  failed_ = true;
  SetOutputs(IOStateUnknown);
  link_.log("The camera didn't take a request for an output.");
  link_.changed();
}

void PinBoard::SetOutputs(u32 state) {
  const std::lock_guard guard(lock_);
  std::fill(outputs_.begin(), outputs_.end(), state);
}

Reply PinBoard::Switch(Desk& desk, unsigned output, bool high) {
  if (output > link_.config.outputs) {
    return Refusal(404, "The camera has no output " + std::to_string(output) + ".");
  }
  failed_ = false;
  if (!outputDriver_) {
    kolvex_host::CameraConfig switched = link_.config;
    switched.inputs = 0;  // so that a failure can only be an output's
    try {
      outputDriver_.emplace(*link_.library, switched, link_.login, noFrames_, link_.DriverLog());
    } catch (const Failure& failure) {
      return Refusal(502, failure.what());
    }
    ICaptureIOApi* const io = (*outputDriver_)->GetCaptureIO();
    if (!io || !io->SetCallback(&callback_) || !io->Start()) {
      outputDriver_.reset();
      return Refusal(502, "The driver refused the outputs of this camera.");
    }
    SetOutputs(IOStateLow);
  }
  if (!(*outputDriver_)->GetCaptureIO()->SetOutput(output - 1, high ? IOStateHigh : IOStateLow)) {
    return Refusal(502, "The driver takes no request for an output.");
  }
  for (const auto end = std::chrono::steady_clock::now() + kSettle;
       std::chrono::steady_clock::now() < end && !failed_ && !desk.Pause(kTick);) {
  }
  if (failed_) {
    // The next request begins anew: what the outputs are isn't known any more.
    outputDriver_.reset();
    return Refusal(502, "The camera didn't take the request for the output.");
  }
  {
    const std::lock_guard guard(lock_);
    outputs_[output - 1] = high ? IOStateHigh : IOStateLow;
  }
  link_.changed();
  return JsonReply({{"output", output}, {"state", high ? "high" : "low"}});
}

json PinBoard::Inputs() const {
  json inputs = json::array();
  const std::lock_guard guard(lock_);
  for (const Input& input : inputs_) {
    inputs.push_back(
        {{"state", Text(input.state)}, {"changed", input.changed != 0 ? json(input.changed) : json()}});
  }
  return inputs;
}

json PinBoard::Outputs() const {
  json outputs = json::array();
  const std::lock_guard guard(lock_);
  for (const u32 state : outputs_) {
    outputs.push_back({{"state", Text(state)}});
  }
  return outputs;
}

std::map<unsigned, std::uint64_t> PinBoard::Changes() const {
  std::map<unsigned, std::uint64_t> changes;
  const std::lock_guard guard(lock_);
  for (std::size_t i = 0; i < inputs_.size(); ++i) {
    changes[static_cast<unsigned>(i + 1)] = inputs_[i].changes;
  }
  return changes;
}

}  // namespace kolvex_console
