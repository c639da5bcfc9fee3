#include <array>
#include <charconv>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "IoSession.h"
#include "Output.h"
#include "Subcommand.h"

namespace kolvex_host {

namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr milliseconds kTick{50};
/// A camera is polled every two seconds, and its first answer reports every input.
constexpr milliseconds kQuiet{6000};
/// A stop that takes longer than this had to wait for a request.
constexpr milliseconds kPromptStop{250};

constexpr const char* kFooter = R"(
Inputs and outputs are numbered from 1.

Examples:
  kolvex-host io watch --camera-file yard.json
  kolvex-host --json io watch --camera-file yard.json --duration 60
  kolvex-host io set 1 high --camera-file yard.json
  kolvex-host io set 1 high 2 low --camera-file yard.json

watch doesn't touch the outputs, and nothing is switched at its end.

set: the driver begins with all outputs that it knows of low. So it is told only of the outputs up to the
highest that is named; those among them that aren't named are low afterwards, the ones above stay as they are.
Name all outputs that must be high in one command. An output that is high already goes low for a moment.
Outputs stay as set when the program ends, by Ctrl-C too.)";

std::string TimeText(std::chrono::system_clock::time_point time) {
  const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
  const auto seconds = static_cast<std::time_t>(sinceEpoch / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 40> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(sinceEpoch % 1000));
  return text.data();
}

const char* StateText(sarnevo::u32 state) { return state == sarnevo::IOStateLow ? "low" : "high"; }

struct WatchArguments {
  CameraChoice camera;
  double duration = 0;  // seconds; 0 is without end
};

void PrintEvent(const Common& common, const IoEvent& event) {
  const std::string time = TimeText(event.time);
  const std::string number = std::to_string(event.input + 1);
  if (!common.json) {
    Print(time + (event.isFailure ? "  the camera didn't answer\n"
                                  : "  input " + number + "  " + StateText(event.state) + "\n"));
  } else if (event.isFailure) {
    PrintJson({{"event", "failure"}, {"time", time}});
  } else {
    PrintJson(
        {{"event", "input"}, {"time", time}, {"input", event.input + 1}, {"state", StateText(event.state)}});
  }
}

void Watch(const Common& common, const WatchArguments& arguments) {
  CameraConfig camera = arguments.camera.Read(common);
  if (camera.inputs == 0) {
    throw Failure(ExitCode::Usage, "The camera " + camera.name +
                                       " has no inputs on record: give inputs=N, or a file of query --save.");
  }
  // Starting sets all outputs low that the driver knows of; who only watches must not switch anything.
  camera.outputs = 0;
  IoSession session(*common.LoadLibrary(), camera, common.LoginFor(camera), common.MakeLog());
  const SteadyClock::time_point start = SteadyClock::now();
  bool silent = true;
  for (bool ended = false; !ended;) {
    ended = common.stop.Wait(kTick);
    const auto elapsed = SteadyClock::now() - start;
    ended = ended || (arguments.duration != 0 && elapsed >= std::chrono::duration<double>(arguments.duration));
    for (const IoEvent& event : session.TakeEvents()) {
      PrintEvent(common, event);
      silent = false;
    }
    if (silent && elapsed >= kQuiet) {
      silent = false;
      std::fprintf(stderr, "kolvex-host: %s has told nothing of its inputs yet.\n", camera.name.c_str());
    }
  }
}

struct SetArguments {
  CameraChoice camera;
  std::vector<std::string> words;
  unsigned settle = 1000;  // milliseconds
};

struct Request {
  sarnevo::u32 index;
  sarnevo::u32 state;
};

std::vector<Request> ParseRequests(const std::vector<std::string>& words) {
  std::vector<Request> requests;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    const std::string& word = words[i];
    sarnevo::u32 number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    const std::string state = i + 1 < words.size() ? words[i + 1] : "";
    if (error != std::errc() || end != word.data() + word.size() || number == 0 ||
        (state != "high" && state != "low")) {
      throw Failure(ExitCode::Usage, "io set takes an output's number, from 1, and high or low; and so on.");
    }
    requests.push_back({number - 1, state == "low" ? sarnevo::IOStateLow : sarnevo::IOStateHigh});
  }
  return requests;
}

/// Whether the camera took all requests. The driver tells of a refusal only, so that the camera gets the time
/// of --settle for one; and if a stop is prompt then, no request was left to wait for.
bool Carry(const Common& common, const SetArguments& arguments, IoSession& session) {
  const SteadyClock::time_point end = SteadyClock::now() + milliseconds(arguments.settle);
  bool failed = false;
  while (!failed && SteadyClock::now() < end && !common.stop.Wait(kTick)) {
    failed = !session.TakeEvents().empty();
  }
  const SteadyClock::time_point stop = SteadyClock::now();
  session.Stop();
  const bool prompt = SteadyClock::now() - stop < kPromptStop;
  return !failed && session.TakeEvents().empty() && prompt;
}

void Set(const Common& common, const SetArguments& arguments) {
  CameraConfig camera = arguments.camera.Read(common);
  const std::vector<Request> requests = ParseRequests(arguments.words);
  sarnevo::u32 used = 0;
  for (const Request& request : requests) {
    used = std::max(used, request.index + 1);
  }
  if (used > camera.outputs) {
    throw Failure(ExitCode::Usage, "The camera " + camera.name + " has " + std::to_string(camera.outputs) +
                                       " outputs on record, so that there is no output " +
                                       std::to_string(used) + ".");
  }
  // Outputs above stay untouched. Without inputs a failure can only be that of an output.
  camera.outputs = used;
  camera.inputs = 0;
  IoSession session(*common.LoadLibrary(), camera, common.LoginFor(camera), common.MakeLog());
  for (const Request& request : requests) {
    session.SetOutput(request.index, request.state);
  }
  const bool taken = Carry(common, arguments, session);
  for (const Request& request : requests) {
    if (common.json) {
      PrintJson({{"event", "output"},
                 {"time", TimeText(std::chrono::system_clock::now())},
                 {"output", request.index + 1},
                 {"state", StateText(request.state)},
                 {"taken", taken}});
    } else if (taken) {
      Print("Output " + std::to_string(request.index + 1) + " of " + camera.name + " is " +
            StateText(request.state) + ".\n");
    }
  }
  if (!taken) {
    throw Failure(ExitCode::Camera, "The camera " + camera.name + " didn't take the output requests.");
  }
}

}  // namespace

void AddIo(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("io", "Watch digital inputs, switch outputs");
  command->require_subcommand(1);
  command->footer(kFooter);

  CLI::App* const watch = command->add_subcommand("watch", "Print each change of an input with its time");
  const auto watchArguments = std::make_shared<WatchArguments>();
  watchArguments->camera.AddTo(*watch);
  watch->add_option("--duration", watchArguments->duration, "Seconds to run; without it until Ctrl-C")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber);
  watch->footer(kFooter);
  watch->final_callback([&common, watchArguments] { Watch(common, *watchArguments); });

  CLI::App* const set = command->add_subcommand("set", "Switch outputs");
  const auto setArguments = std::make_shared<SetArguments>();
  setArguments->camera.AddTo(*set);
  set->add_option("request", setArguments->words, "N high|low, for one output or several")->required();
  set->add_option("--settle", setArguments->settle, "Milliseconds that the camera has to refuse (1000)")
      ->type_name("MS");
  set->footer(kFooter);
  set->final_callback([&common, setArguments] { Set(common, *setArguments); });
}

}  // namespace kolvex_host
