#include <memory>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Failure.h"
#include "Output.h"
#include "Subcommand.h"
#include "Texts.h"

namespace kolvex_host {

namespace {

using std::chrono::milliseconds;

constexpr const char* kFooter = R"(
Examples:
  # What is it, and what can it do?
  kolvex-host query 192.0.2.7

  # From an address to pictures; the file holds all that the driver needs to know of the camera:
  kolvex-host query 192.0.2.7 --name Yard --save yard.json
  kolvex-host capture --camera-file yard.json --duration 10 --out pictures

The file asks for MJPEG in the largest picture at the camera's highest rate. Change that there, or after its
name: --camera-file yard.json,codec=mpeg4,fps=5. A later --save updates facts and settings and keeps the rest. The
file never holds user name and password.)";

struct Arguments {
  std::string place;
  std::string name;
  std::string save;
  bool force = false;
  bool ntsc = false;
  milliseconds timeout = QueryOptions().timeout;
};

void Run(const Common& common, const Arguments& arguments) {
  if (common.json && arguments.save == "-") {
    throw Failure(ExitCode::Usage, "--save - and --json both want standard output; the file is JSON already.");
  }
  if (!arguments.save.empty()) {
    OutputFile::CheckPlace(arguments.save);
  }
  QueryOptions options;
  options.place = Place::Parse(arguments.place);
  options.ntsc = arguments.ntsc;
  options.timeout = arguments.timeout;
  const Capabilities capabilities = common.Query(options);
  const CameraConfig camera = capabilities.ToCamera(options.place.address, options.place.port, arguments.name);
  nlohmann::json file = capabilities.ToFile(camera);
  if (!arguments.save.empty()) {
    nlohmann::json kept = UpdateCameraFile(arguments.save, file, arguments.force);
    if (!arguments.name.empty()) {
      kept["name"] = arguments.name;
    }
    if (arguments.ntsc) {
      kept["settings"]["3"] = file["settings"]["3"];
    }
    OutputFile::WriteWhole(arguments.save, JsonText(kept, 2) + "\n");
    if (arguments.save == "-") {
      return;  // the file is the output
    }
  }
  if (common.json) {
    file["event"] = "camera";
    PrintJson(file);
    return;
  }
  Print(capabilities.ToTable(camera, kolvex_tools::OutputWidth()) +
        (arguments.save.empty() ? "" : "\nSaved in " + arguments.save + " for --camera-file.\n"));
}

}  // namespace

void AddQuery(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("query", "Find out what camera is at an address");
  command->alias("probe");
  const auto arguments = std::make_shared<Arguments>();
  command->add_option("address", arguments->place, "Where it is, ADDRESS[:PORT] or http://ADDRESS/")
      ->type_name("ADDRESS")
      ->required();
  command
      ->add_option(
          "--save", arguments->save,
          "Write a camera file, for --camera-file of the other subcommands, or to standard output as -. "
          "In a file that is there the name and what was edited by hand stay")
      ->type_name("FILE");
  command->add_flag("--force", arguments->force, "Replace the file of --save, whatever is in it");
  command->add_option("--name", arguments->name, "The camera's name in that file (the address)")
      ->type_name("TEXT");
  command->add_flag("--ntsc", arguments->ntsc, "Ask for NTSC instead of PAL");
  AddDuration(*command, "--timeout", arguments->timeout, "How long the camera has to answer (8s)",
              milliseconds(100), std::chrono::minutes(10));
  command->footer(kFooter);
  command->final_callback([&common, arguments] { Run(common, *arguments); });
}

}  // namespace kolvex_host
