#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Drive.h"
#include "Failure.h"
#include "HeadSession.h"
#include "Output.h"
#include "Subcommand.h"
#include "Texts.h"

namespace kolvex_host {

using kolvex_tools::TextTable;
using namespace sarnevo;

namespace {

using std::chrono::milliseconds;

constexpr const char* kFooter = R"(
Examples:
  kolvex-host ptz move left --speed 8 --for 500ms --camera-file yard.json
  kolvex-host ptz presets add Gate --camera-file yard.json
  kolvex-host ptz presets go Gate --camera-file yard.json
  kolvex-host ptz drive --camera-file yard.json

A head that isn't stopped goes on moving. move and drive stop it on every way out, also after Ctrl-C, SIGTERM and a
lost terminal, and make sure that the camera has taken the stop; exit code 7 when it hasn't.

The driver keeps the names of positions in a file beside this program, Kolvex_MAC.preset with the camera's hardware
address (setting 9 of a camera file), so that the program's folder must be writable.)";

struct Arguments {
  CameraChoice camera;
  std::string movement;
  milliseconds duration{500};
  i32 speed = 8;
  std::string name;
  std::string over;
  bool again = false;
};

void Tell(const Common& common, nlohmann::json event, const std::string& sentence) {
  if (common.json) {
    PrintJson(event);
  } else {
    Print(sentence + "\n");
  }
}

/// Does something with a camera's head; a failure comes with its reason.
void WithHead(const Common& common, const CameraChoice& choice, const std::function<void(HeadSession&)>& step) {
  const CameraConfig camera = choice.Read(common);
  CheckHead(camera);
  const std::shared_ptr<Library> library = common.LoadLibrary();
  WithReason(common, camera, [&](const Login& login) {
    HeadSession head(*library, camera, login, common.MakeLog());
    step(head);
  });
}

/// A program that Ctrl-Z halts can't stop a head.
void NeverHalt() { std::signal(SIGTSTP, SIG_IGN); }

void Move(const Common& common, const Arguments& arguments) {
  const Movement* const movement = FindMovement(arguments.movement);
  if (!movement) {
    std::string names;
    for (const Movement& known : kMovements) {
      names += (names.empty() ? "" : ", ") + std::string(known.name);
    }
    throw Failure(ExitCode::Usage, Quoted(arguments.movement) + " is no movement: there are " + names + ".");
  }
  NeverHalt();
  WithHead(common, arguments.camera, [&](HeadSession& head) {
    head.Move(*movement, arguments.speed);
    common.stop.Wait(arguments.duration, StopSignal::Second::Waits);
    if (head.TakeFailure()) {
      throw Failure(ExitCode::Camera, "The camera didn't take the movement.");
    }
    head.Finish();
  });
  Tell(common, {{"event", "moved"}, {"movement", movement->name}, {"speed", arguments.speed}},
       "Moved " + std::string(movement->name) + " and stopped.");
}

void Stop(const Common& common, const Arguments& arguments) {
  WithHead(common, arguments.camera, [](HeadSession& head) { head.Finish(); });
  Tell(common, {{"event", "stopped"}}, "Stopped.");
}

void DriveByKeys(const Common& common, const Arguments& arguments) {
  NeverHalt();
  WithHead(common, arguments.camera, [&](HeadSession& head) {
    Drive(head, common.stop, arguments.speed);
    head.Finish();
  });
}

/// The name at @p position, or the current one. Names may be up to a mebibyte long.
template <typename Get>
std::string ReadName(Get get) {
  for (std::size_t size = 1024; size <= (std::size_t{1} << 21U); size *= 2) {
    std::vector<char> buffer(size);
    const i32 status = get(buffer.data(), static_cast<u32>(size));
    if (status == PtzDone) {
      return buffer.data();
    }
    if (status != PtzInvalidArgument) {
      break;
    }
  }
  return {};
}

std::string CurrentName(IIPPTZApi& api) {
  return ReadName([&api](char* buffer, u32 size) { return api.GetCurrentPreposition(buffer, size); });
}

std::vector<std::string> Names(IIPPTZApi& api) {
  std::vector<std::string> names;
  for (u32 position = 0; position < api.GetPrepositionCount(); ++position) {
    names.push_back(ReadName(
        [&api, position](char* buffer, u32 size) { return api.GetPrepositionName(position, buffer, size); }));
  }
  return names;
}

void List(const Common& common, IIPPTZApi& api) {
  const std::vector<std::string> names = Names(api);
  TextTable table({{"position", true}, {"name"}});
  for (std::size_t i = 0; i < names.size(); ++i) {
    table.Add({std::to_string(i + 1), names[i]});
  }
  std::string text = table.Text(kolvex_tools::OutputWidth());
  text.pop_back();
  Tell(common, {{"event", "presets"}, {"names", names}}, names.empty() ? "No position is stored." : text);
}

/// The driver takes names that a person can't tell apart or read. They are refused before anything is stored.
void CheckName(const std::string& name) {
  const bool blank = kolvex_tools::IsBlank(name);
  // Shown puts a question mark in the place of all that can't be printed.
  const auto marks = [](const std::string& text) { return std::count(text.begin(), text.end(), '?'); };
  const bool control = marks(kolvex_tools::Shown(name)) != marks(name);
  if (blank || control) {
    throw Failure(ExitCode::Usage,
                  blank
                      ? "A position needs a name that isn't blank."
                      : "A position's name must be UTF-8 text with no control characters, such as line ends.");
  }
}

/// A stored position's operation: how the camera's answer reads.
void Check(i32 status, const Arguments& arguments) {
  switch (status) {
    case PtzDone:
      return;
    case PtzInvalidArgument:
      throw Failure(ExitCode::Usage, "\"" + arguments.name +
                                         "\" is no name for a position: it must be UTF-8 text without any of "
                                         "& ! < > ' \".");
    case PtzLimitReached:
      throw Failure(ExitCode::Camera, "The camera stores no more positions.");
    case PtzNoPreposition:
      throw Failure(ExitCode::Camera,
                    "There is no position \"" + arguments.name + "\", or the camera refused.");
    default:
      throw Failure(ExitCode::Camera, "The position \"" + arguments.name +
                                          "\" wasn't stored: the camera refused, or its file can't be "
                                          "written.");
  }
}

/// Such a camera can't be told where to store. Known by its limit, which is one above the number of slots.
bool HasFixedSlots(IIPPTZApi& api) {
  constexpr u32 kFixedSlots = 64;
  CPtzCapabilities record{};
  return api.GetCapabilities(&record) == PtzDone &&
         record.words[CPtzCapabilities::kPrepositionLimit] == kFixedSlots + 1;
}

struct PresetCommand {
  const char* name;
  const char* help;
  bool takesName;
  void (*run)(const Common& common, IIPPTZApi& api, const Arguments& arguments);
};

constexpr auto kPresetCommands = std::to_array<PresetCommand>({
    {"list", "The names of all stored positions", false,
     [](const Common& common, IIPPTZApi& api, const Arguments&) { List(common, api); }},
    {"add", "Store the place of the head under a name", true,
     [](const Common& common, IIPPTZApi& api, const Arguments& arguments) {
       if (arguments.over.empty() && HasFixedSlots(api)) {
         throw Failure(ExitCode::Usage,
                       "The camera has fixed slots and stores at the one last gone to: name it with --over.");
       }
       if (const auto names = Names(api);
           !arguments.again && arguments.over != arguments.name &&
           std::find(names.begin(), names.end(), arguments.name) != names.end()) {
         throw Failure(ExitCode::Usage,
                       "There is a position \"" + arguments.name +
                           "\" already, and only one of them could be gone to: delete it first, "
                           "or give --again.");
       }
       if (!arguments.over.empty()) {
         Check(api.SelectPreposition(0, arguments.over.c_str()), arguments);
       }
       Check(api.AddPreposition(arguments.name.c_str()), arguments);
       Tell(common, {{"event", "stored"}, {"name", arguments.name}}, "Stored \"" + arguments.name + "\".");
     }},
    {"go", "Move the head to a stored position", true,
     [](const Common& common, IIPPTZApi& api, const Arguments& arguments) {
       Check(api.SelectPreposition(0, arguments.name.c_str()), arguments);
       Tell(common, {{"event", "recalled"}, {"name", arguments.name}}, "Going to \"" + arguments.name + "\".");
     }},
    {"delete", "Forget a stored position (all of them on cameras with fixed slots)", true,
     [](const Common& common, IIPPTZApi& api, const Arguments& arguments) {
       Check(api.DeletePreposition(arguments.name.c_str()), arguments);
       Tell(common, {{"event", "deleted"}, {"name", arguments.name}}, "Deleted \"" + arguments.name + "\".");
     }},
    {"current",
     "The position that the head is at, as far as the driver knows; after its start it mostly doesn't", false,
     [](const Common& common, IIPPTZApi& api, const Arguments&) {
       const std::string name = CurrentName(api);
       Tell(common, {{"event", "current"}, {"name", name.empty() ? nlohmann::json() : nlohmann::json(name)}},
            name.empty() ? "The driver knows of no stored position that the head is at."
                         : "The head is at \"" + name + "\".");
     }},
});

void AddPresets(CLI::App& ptz, const Common& common, const std::shared_ptr<Arguments>& arguments) {
  CLI::App* const presets = ptz.add_subcommand("presets", "Stored positions: list, add, go, delete, current");
  presets->require_subcommand(1);
  for (const PresetCommand& row : kPresetCommands) {
    CLI::App* const command = presets->add_subcommand(row.name, row.help);
    arguments->camera.AddTo(*command);
    if (row.takesName) {
      command->add_option("name", arguments->name, "The position's name")->required();
    }
    if (std::string_view(row.name) == "add") {
      command
          ->add_option("--over", arguments->over,
                       "Go to this position first and give it the new name; the only way on cameras with fixed "
                       "slots, whose free ones are named \"empty p3 \" and so on")
          ->type_name("NAME");
    }
    if (std::string_view(row.name) == "add") {
      command->add_flag("--again", arguments->again, "Store although there is a position of that name");
    }
    command->footer(kFooter);
    command->final_callback([&common, &row, arguments] {
      if (std::string_view(row.name) == "add") {
        CheckName(arguments->name);
      }
      WithHead(common, arguments->camera, [&](HeadSession& head) { row.run(common, head.Api(), *arguments); });
    });
  }
}

}  // namespace

void AddPtz(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("ptz", "Move a head and its lens, store and recall positions");
  command->require_subcommand(1);
  command->footer(kFooter);
  const auto arguments = std::make_shared<Arguments>();
  const auto addSpeed = [&arguments](CLI::App& to) {
    to.add_option("--speed", arguments->speed, "1 to 16 (8)")->type_name("N")->check(CLI::Range(1, 16));
  };

  CLI::App* const move = command->add_subcommand("move", "Move for some time, then stop");
  arguments->camera.AddTo(*move);
  move->add_option("movement", arguments->movement,
                   "left, right, up, down, left-up, right-up, left-down, right-down, zoom-in, zoom-out, "
                   "focus-near, focus-far, iris-open or iris-close")
      ->required();
  addSpeed(*move);
  AddDuration(*move, "--for", arguments->duration, "How long (500ms)", milliseconds(20),
              std::chrono::minutes(1));
  move->footer(kFooter);
  move->final_callback([&common, arguments] { Move(common, *arguments); });

  CLI::App* const stop = command->add_subcommand("stop", "Stop head and lens");
  arguments->camera.AddTo(*stop);
  stop->final_callback([&common, arguments] { Stop(common, *arguments); });

  CLI::App* const drive = command->add_subcommand("drive", "Move by keys of the terminal, press and hold");
  arguments->camera.AddTo(*drive);
  addSpeed(*drive);
  drive->footer(std::string("\n") + kDriveKeys + kFooter);
  drive->final_callback([&common, arguments] { DriveByKeys(common, *arguments); });

  AddPresets(*command, common, arguments);
}

}  // namespace kolvex_host
