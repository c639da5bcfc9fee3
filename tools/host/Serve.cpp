#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "CameraFile.h"
#include "Console.h"
#include "Failure.h"
#include "Output.h"
#include "Subcommand.h"
#include "Terminal.h"
#include "web/Login.h"
#include "web/PrivateFile.h"

namespace kolvex_host {

namespace {

using kolvex_console::ConsoleOptions;

constexpr const char* kServeFooter = R"(
The console listens on 127.0.0.1:8088 unless --listen names another place. At an address that isn't loopback it needs
a login, and should have a proxy in front of it that adds TLS. It also takes sockets of systemd (LISTEN_FDS).

Examples:
  kolvex-host serve --folder ~/cameras
  kolvex-host serve --camera-file yard.json --camera-file gate.json --listen 127.0.0.1:9000
  kolvex-host serve --folder ~/cameras --set-password
  kolvex-host serve --folder ~/cameras --listen 192.0.2.5:8088

Cameras that are added in the page are kept in the folder, one file each, and their passwords in the folder's
credentials.json, readable by you alone. docs/console.md lists the doors for other programs.)";

constexpr const char* kViewFooter = R"(
Examples:
  kolvex-host view 192.0.2.7
  kolvex-host view 192.0.2.7:8080,codec=mpeg4)";

struct Arguments {
  std::vector<std::string> files;
  std::vector<std::string> cameras;
  ConsoleOptions options;
  std::vector<std::string> names;
  bool setPassword = false;
};

void PrintUrls(const Common& common, const std::vector<std::string>& urls, const char* what) {
  for (const std::string& url : urls) {
    if (common.json) {
      PrintJson({{"event", "listening"}, {"url", url}});
    } else {
      Print(fmt::format("{}{}\n", what, url));
    }
  }
}

void SetPassword(const Common& common, const Arguments& arguments) {
  const std::filesystem::path path = LoginPath(arguments.options);
  if (path.empty()) {
    throw Failure(ExitCode::Usage,
                  "--set-password needs --folder or --login, to know where the login is kept.");
  }
  std::string user = common.user;
  std::string password;
  if (CanAsk()) {
    if (user.empty()) {
      user = AskLine("User name for the console: ", common.stop);
    }
    password = AskSecret("Password: ", common.stop);
    if (AskSecret("The same again: ", common.stop) != password) {
      throw Failure(ExitCode::Usage, "These were two different passwords; nothing was changed.");
    }
  } else {
    // For scripts, the way a camera's password comes.
    const char* const given = std::getenv("KOLVEX_CONSOLE_PASSWORD");
    password = given ? given : "";
  }
  if (arguments.options.login.empty() && !std::filesystem::exists(arguments.options.folder)) {
    kolvex_console::MakePrivateFolder(arguments.options.folder);
  }
  kolvex_console::LoginFile::Write(path, user, password);
  Print(fmt::format("The console's login is in {}.\n", path.string()));
}

void Serve(const Common& common, Arguments arguments) {
  if (arguments.setPassword) {
    SetPassword(common, arguments);
    return;
  }
  for (const std::string& name : arguments.names) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
    arguments.options.names.insert(lower);
  }
  const auto add = [&](const CameraConfig& camera) {
    arguments.options.cameras.push_back({camera, common.LoginFor(camera)});
  };
  for (const std::string& file : arguments.files) {
    add(ReadCameraFile(file));
  }
  for (const std::string& camera : arguments.cameras) {
    add(common.FindCamera(camera));
  }
  RunConsole(common.LoadLibrary(), arguments.options, common.stop, [&](const std::vector<std::string>& urls) {
    PrintUrls(common, urls, "Cameras in the browser: ");
  });
}

void View(const Common& common, const std::string& text, ConsoleOptions options) {
  const CameraConfig camera = common.FindCamera(text);
  options.cameras.push_back({camera, common.LoginFor(camera)});
  if (options.listen.empty()) {
    options.listen.emplace_back("127.0.0.1:0");  // any free port: several cameras may be viewed at a time
  }
  RunConsole(common.LoadLibrary(), options, common.stop,
             [&](const std::vector<std::string>& urls) { PrintUrls(common, urls, ""); });
}

void AddListen(CLI::App& command, ConsoleOptions& options) {
  command.add_option("--listen", options.listen, "Where to listen; may be given several times")
      ->type_name("ADDRESS:PORT");
}

}  // namespace

void AddServe(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("serve", "Show cameras in the browser, and to other programs");
  const auto arguments = std::make_shared<Arguments>();
  command->add_option("--camera-file", arguments->files, "A camera from a JSON file, FILE[,KEY=VALUE,...]")
      ->type_name("FILE");
  command->add_option("--camera", arguments->cameras, "A camera, ADDRESS[:PORT][,KEY=VALUE,...]")
      ->type_name("CAMERA");
  command->add_option("--folder", arguments->options.folder, "Keep the cameras that are added in the page here")
      ->type_name("DIR");
  AddListen(*command, arguments->options);
  command->add_option("--name", arguments->names, "A host name by which browsers know this server")
      ->type_name("NAME");
  command->add_option("--login", arguments->options.login, "The login file (DIR/login)")->type_name("FILE");
  command->add_flag("--set-password", arguments->setPassword,
                    "Ask for a user name and a password, write the login file, and end");
  command
      ->add_option(
          "--simulated", arguments->options.simulator,
          "The cameras are simulated, with kolvex-camera --control here: the page switches their faults")
      ->type_name("ADDRESS:PORT");
  command->footer(kServeFooter);
  command->final_callback([&common, arguments] { Serve(common, *arguments); });
}

void AddView(CLI::App& app, const Common& common) {
  CLI::App* const command = app.add_subcommand("view", "Show one camera in the browser");
  const auto place = std::make_shared<std::string>();
  const auto options = std::make_shared<ConsoleOptions>();
  command->add_option("address", *place, "Where it is, ADDRESS[:PORT][,KEY=VALUE,...]")
      ->type_name("ADDRESS")
      ->required();
  AddListen(*command, *options);
  command->footer(kViewFooter);
  command->final_callback([&common, place, options] { View(common, *place, *options); });
}

}  // namespace kolvex_host
