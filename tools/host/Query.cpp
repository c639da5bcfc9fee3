#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "Capabilities.h"
#include "Diagnosis.h"
#include "Failure.h"
#include "Output.h"
#include "OutputFile.h"
#include "QueryRun.h"
#include "Subcommand.h"

namespace kolvex_host {

namespace {

constexpr const char* kFooter = R"(
Examples:
  # What is it, and what can it do?
  kolvex-host query 192.0.2.7

  # From an address to pictures; the file holds all that the driver needs to know of the camera:
  kolvex-host query 192.0.2.7 --name Yard --save yard.json
  kolvex-host capture --camera-file yard.json --duration 10 --out pictures

The file asks for MJPEG in the largest picture at the camera's highest rate. Change that there, or behind its
name: --camera-file yard.json,codec=mpeg4,fps=5. User name and password never stand in it; they come from
KOLVEX_USER and KOLVEX_PASSWORD, or from the file of --credentials.)";

struct Arguments {
  std::string place;
  std::string name;
  std::string save;
  bool ntsc = false;
  double timeout = 30;  // seconds
};

QueryOptions MakeOptions(const Common& common, const Arguments& arguments) {
  const std::size_t colon = arguments.place.find(':');
  CameraConfig place;
  if (colon != std::string::npos) {
    place.Set("port", arguments.place.substr(colon + 1));
  }
  QueryOptions options;
  options.address = ResolveAddress(arguments.place.substr(0, colon));
  options.port = place.port;
  options.login = common.LoadCredentials().For(options.address);
  options.ntsc = arguments.ntsc;
  options.timeout = std::chrono::milliseconds(static_cast<long>(arguments.timeout * 1000));
  return options;
}

void Run(const Common& common, const Arguments& arguments) {
  const QueryOptions options = MakeOptions(common, arguments);
  const auto library = std::make_shared<Library>(common.LoadLibrary());
  const Capabilities capabilities = RunQuery(library, options, common.stop);
  const CameraConfig camera = capabilities.ToCamera(options.address, options.port, arguments.name);
  nlohmann::json file = capabilities.ToFile(camera);
  if (!arguments.save.empty()) {
    OutputFile::WriteWhole(arguments.save,
                           file.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
  }
  if (common.json) {
    file["event"] = "camera";
    PrintJson(file);
    return;
  }
  Print(capabilities.ToTable(camera) +
        (arguments.save.empty() ? "" : "\nSaved in " + arguments.save + " for capture --camera-file.\n"));
}

}  // namespace

void AddQuery(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("query", "Find out what camera stands at an address");
  command->alias("probe");
  const auto arguments = std::make_shared<Arguments>();
  command->add_option("address", arguments->place, "Where it stands, ADDRESS[:PORT]")
      ->type_name("ADDRESS")
      ->required();
  command
      ->add_option("--save", arguments->save, "Write a camera file, for --camera-file of the other subcommands")
      ->type_name("FILE");
  command->add_option("--name", arguments->name, "The camera's name in that file (the address)")
      ->type_name("TEXT");
  command->add_flag("--ntsc", arguments->ntsc, "Ask for NTSC instead of PAL");
  command->add_option("--timeout", arguments->timeout, "Seconds that the camera has to answer (30)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 3600.0));
  command->footer(kFooter);
  command->final_callback([&common, arguments] { Run(common, *arguments); });
}

}  // namespace kolvex_host
