#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Diagnosis.h"
#include "Failure.h"
#include "IoSession.h"
#include "Looks.h"
#include "Output.h"
#include "Subcommand.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr milliseconds kTick{50};
/// A camera is polled every two seconds, and the driver is silent about polls that fail: two of them.
constexpr milliseconds kQuiet{4500};
/// A stop that takes longer than this had to wait for a request.
constexpr milliseconds kPromptStop{250};

constexpr const char* kFooter = R"(
Inputs and outputs are numbered from 1.

Examples:
  kolvex-host io watch 192.0.2.7
  kolvex-host --json io watch 192.0.2.7 --duration 1m
  kolvex-host io set 1 high --camera 192.0.2.7
  kolvex-host io set 1 high 2 low --camera-file yard.json

watch switches no output, not even when it ends. It says when a camera goes away and when it is back.

set: the driver begins by setting all outputs low that it knows of. The program lets it know of the outputs up to the
highest that is named: those among them that aren't named are low afterwards, the ones above stay as they are.
Name all outputs that must be high in one command, or give --keep, which refuses to touch an output that isn't named.
An output that is high already goes low for a moment. Outputs stay as set when the program ends, by Ctrl-C too.)";

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
  milliseconds duration{0};  // 0 is without end
};

std::string Now() { return TimeText(std::chrono::system_clock::now()); }

void PrintEvent(const Common& common, const IoEvent& event) {
  const std::string time = TimeText(event.time);
  if (!common.json) {
    Print(event.isFailure ? fmt::format("{}  the camera didn't answer\n", time)
                          : fmt::format("{}  input {}  {}\n", time, event.input + 1, StateText(event.state)));
  } else if (event.isFailure) {
    PrintJson({{"event", "failure"}, {"time", time}});
  } else {
    PrintJson(
        {{"event", "input"}, {"time", time}, {"input", event.input + 1}, {"state", StateText(event.state)}});
  }
}

/// Distinguishes inputs that don't change from a camera that doesn't answer: the driver says nothing in either case. So while
/// nothing comes the camera is asked, at the driver's own pace.
class Attention {
 public:
  Attention(const Common& common, const CameraConfig& camera)
      : common_(common), camera_(camera), login_(common.LoginFor(camera)) {
    Look();
  }

  void HaveHeard() {
    heard_ = true;
    next_ = SteadyClock::now() + kQuiet;
    if (trouble_) {
      TellRecovery();
    }
  }
  /// Throws Failure for what waiting can't cure, unless the camera answered before.
  void Tick() {
    if (looks_.IsDone(0)) {
      Judge(looks_.Result(0));
      looks_.Forget(0);
      next_ = SteadyClock::now() + kQuiet;
    } else if (SteadyClock::now() >= next_) {
      Look();
    }
  }
  const std::optional<Reason>& Trouble() const { return trouble_; }

 private:
  void Look() {
    looks_.Begin(0, [diagnosis = Diagnosis(camera_, login_)](std::stop_token stop) {
      return diagnosis.WhyNoAnswer(std::move(stop));
    });
  }
  void Judge(const Reason* reason) {
    if (reason && !heard_ && reason->IsLasting()) {
      throw Failure(reason->exit, reason->Sentence());
    }
    if (reason && (!trouble_ || trouble_->cause != reason->cause)) {
      trouble_ = *reason;
      if (common_.json) {
        PrintJson({{"event", "trouble"},
                   {"time", Now()},
                   {"reason", reason->Name()},
                   {"message", reason->Sentence()}});
      } else {
        Print(fmt::format("{}  {}\n", Now(), reason->Sentence()));
      }
    } else if (!reason && trouble_) {
      TellRecovery();
    }
    heard_ = heard_ || !reason;
  }
  void TellRecovery() {
    trouble_.reset();
    if (common_.json) {
      PrintJson({{"event", "recovered"}, {"time", Now()}});
    } else {
      Print(fmt::format("{}  the camera answers again\n", Now()));
    }
  }

  const Common& common_;
  const CameraConfig& camera_;
  const Login login_;
  Looks looks_;
  SteadyClock::time_point next_ = SteadyClock::now() + kQuiet;
  std::optional<Reason> trouble_;
  bool heard_ = false;
};

void Watch(const Common& common, const WatchArguments& arguments) {
  CameraConfig camera = arguments.camera.Read(common);
  if (camera.inputs == 0) {
    throw Failure(ExitCode::Usage, fmt::format("The camera {} has no inputs on record: give inputs=N, or leave "
                                               "group= out, so that the camera is asked.",
                                               camera.name));
  }
  // Starting sets all outputs low that the driver knows of; who only watches must not switch anything.
  camera.outputs = 0;
  IoSession session(*common.LoadLibrary(), camera, common.LoginFor(camera), common.MakeLog());
  Attention attention(common, camera);
  const SteadyClock::time_point start = SteadyClock::now();
  for (bool ended = false; !ended;) {
    ended = common.stop.Wait(kTick);
    ended = ended || (arguments.duration.count() != 0 && SteadyClock::now() - start >= arguments.duration);
    for (const IoEvent& event : session.TakeEvents()) {
      PrintEvent(common, event);
      if (!event.isFailure) {
        attention.HaveHeard();
      }
    }
    attention.Tick();
  }
  if (attention.Trouble()) {
    throw Failure(attention.Trouble()->exit, attention.Trouble()->Sentence());
  }
}

struct SetArguments {
  CameraChoice camera;
  std::vector<std::string> words;
  bool keep = false;
  milliseconds settle{1000};
};

struct Request {
  sarnevo::u32 index;
  sarnevo::u32 state;
};

std::vector<Request> ParseRequests(const std::vector<std::string>& words) {
  std::vector<Request> requests;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    constexpr sarnevo::u32 kMost = 64;  // far above what any camera has
    const auto number = kolvex_tools::ParseNumber(words[i], 1, kMost);
    const std::string state = i + 1 < words.size() ? words[i + 1] : "";
    if (!number || (state != "high" && state != "low")) {
      throw Failure(ExitCode::Usage, "io set takes an output's number, from 1, and high or low; and so on.");
    }
    if (std::any_of(requests.begin(), requests.end(),
                    [&number](const Request& one) { return one.index == *number - 1; })) {
      throw Failure(ExitCode::Usage, fmt::format("Output {} is named twice. Nothing was switched.", *number));
    }
    requests.push_back(
        {static_cast<sarnevo::u32>(*number) - 1, state == "low" ? sarnevo::IOStateLow : sarnevo::IOStateHigh});
  }
  return requests;
}

/// Whether the camera took all requests. The driver reports refusals only, so that the camera gets the time
/// of --settle for one; and if a stop is prompt then, no request was left to wait for.
bool Carry(const Common& common, const SetArguments& arguments, IoSession& session) {
  const SteadyClock::time_point end = SteadyClock::now() + arguments.settle;
  bool failed = false;
  while (!failed && SteadyClock::now() < end && !common.stop.Wait(kTick)) {
    failed = !session.TakeEvents().empty();
  }
  const SteadyClock::time_point stop = SteadyClock::now();
  session.Stop();
  const bool prompt = SteadyClock::now() - stop < kPromptStop;
  return !failed && session.TakeEvents().empty() && prompt;
}

/// The outputs that go low because the driver can't leave them, "1 and 3"; empty when there are none.
std::string Unnamed(const std::vector<Request>& requests, sarnevo::u32 used) {
  std::vector<std::string> names;
  for (sarnevo::u32 index = 0; index < used; ++index) {
    if (std::none_of(requests.begin(), requests.end(),
                     [index](const Request& one) { return one.index == index; })) {
      names.push_back(std::to_string(index + 1));
    }
  }
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return text;
}

void Set(const Common& common, const SetArguments& arguments) {
  const std::vector<Request> requests = ParseRequests(arguments.words);
  CameraConfig camera = arguments.camera.Read(common);
  sarnevo::u32 used = 0;
  for (const Request& request : requests) {
    used = std::max(used, request.index + 1);
  }
  if (used > camera.outputs) {
    throw Failure(
        ExitCode::Usage,
        camera.outputs == 0
            ? fmt::format("The camera {} has no outputs on record: give outputs=N, or leave group= out, "
                          "so that the camera is asked.",
                          camera.name)
            : fmt::format("The camera {} has {} outputs on record, so that there is no output {}.", camera.name,
                          camera.outputs, used));
  }
  if (const std::string lost = Unnamed(requests, used); !lost.empty()) {
    const std::string sentence = fmt::format(
        "The driver begins with all outputs up to {} low and can't leave one out, so that output {} goes low",
        used, lost);
    if (arguments.keep) {
      throw Failure(ExitCode::Usage, sentence + ": name it too, or leave --keep out. Nothing was switched.");
    }
    fmt::print(stderr, "kolvex-host: {}.\n", sentence);
  }
  // Outputs above stay untouched. Without inputs a failure can only be that of an output.
  camera.outputs = used;
  camera.inputs = 0;
  const std::shared_ptr<Library> library = common.LoadLibrary();
  WithReason(common, camera, [&](const Login& login) {
    IoSession session(*library, camera, login, common.MakeLog());
    for (const Request& request : requests) {
      session.SetOutput(request.index, request.state);
    }
    const bool taken = Carry(common, arguments, session);
    for (const Request& request : requests) {
      if (common.json) {
        PrintJson({{"event", "output"},
                   {"time", Now()},
                   {"output", request.index + 1},
                   {"state", StateText(request.state)},
                   {"taken", taken}});
      } else if (taken) {
        Print(
            fmt::format("Output {} of {} is {}.\n", request.index + 1, camera.name, StateText(request.state)));
      }
    }
    if (!taken) {
      throw Failure(ExitCode::Camera,
                    fmt::format("The camera {} didn't take the output requests.", camera.name));
    }
  });
}

}  // namespace

void AddIo(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("io", "Watch digital inputs, switch outputs");
  command->require_subcommand(1);
  command->footer(kFooter);

  CLI::App* const watch = command->add_subcommand("watch", "Print each change of an input with its time");
  const auto watchArguments = std::make_shared<WatchArguments>();
  watchArguments->camera.AddTo(*watch, true);
  AddDuration(*watch, "--duration", watchArguments->duration, "How long; without it until Ctrl-C",
              milliseconds(100), std::chrono::hours(24 * 7));
  watch->footer(kFooter);
  watch->final_callback([&common, watchArguments] { Watch(common, *watchArguments); });

  CLI::App* const set = command->add_subcommand("set", "Switch outputs");
  const auto setArguments = std::make_shared<SetArguments>();
  setArguments->camera.AddTo(*set);
  set->add_option("request", setArguments->words, "N high|low, for one output or several")->required();
  set->add_flag("--keep", setArguments->keep, "Refuse when an output that isn't named would go low");
  AddDuration(*set, "--settle", setArguments->settle, "How long the camera has to refuse (1s)",
              milliseconds(100), std::chrono::minutes(1));
  set->footer(kFooter);
  set->final_callback([&common, setArguments] { Set(common, *setArguments); });
}

}  // namespace kolvex_host
