#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Output.h"
#include "Place.h"
#include "ProgramEnd.h"
#include "Subcommand.h"
#include "Texts.h"
#include "kolvex/Version.h"

namespace kolvex_host {

namespace {

constexpr AddSubcommand* kSubcommands[] = {AddQuery, AddSnapshot, AddCapture, AddIo, AddPtz, AddServe, AddView};

constexpr const char* kFooter = R"(
From an address to pictures:
  kolvex-host query 192.0.2.7
  kolvex-host snapshot 192.0.2.7
  kolvex-host capture 192.0.2.7 --duration 10s --out pictures

User name and password come from --credentials FILE, or from KOLVEX_USER and KOLVEX_PASSWORD; else the program asks
for them on a terminal. A password is never on a command line, where others can read it.

Exit codes:
  0  done; Ctrl-C is an ordinary end
  1  the command line, or a file that it names, can't be understood
  2  the driver library can't be loaded
  3  the driver refused to open a camera or to start its stream
  4  at least one camera gave no frame
  5  a result couldn't be written
  6  something that should not happen
  7  the camera can't be reached, or didn't do what was asked
  8  the camera wants another user name or password

Each subcommand has a --help with examples.)";

int Fail(bool json, ExitCode code, const std::string& sentence, bool told = false) {
  if (json) {
    try {
      PrintJson({{"event", "error"}, {"exit", static_cast<int>(code)}, {"message", sentence}});
    } catch (const std::exception&) {
      // Standard output has gone; standard error is left.
    }
  }
  if (!told) {
    fmt::print(stderr, "kolvex-host: {}\n", sentence);
  }
  return static_cast<int>(code);
}

/// The subcommand that a command line names.
const CLI::App* Innermost(const CLI::App& app) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
  }
  return command;
}

/// The words that name it, "ptz move".
std::string PathOf(const CLI::App& app) {
  std::string path;
  for (const CLI::App* command = Innermost(app); command != &app; command = command->get_parent()) {
    path = command->get_name() + (path.empty() ? "" : " ") + path;
  }
  return path.empty() ? app.get_name() : path;
}

/// What is wrong with a command line, in a sentence that repeats nothing which may be a password: words that no
/// option wanted aren't shown, and of an option only its name.
std::string SentenceOf(const CLI::ParseError& error, const CLI::App& app) {
  const CLI::App* const command = Innermost(app);
  // CLI11 counts groups of options as subcommands without a name.
  const std::vector<const CLI::App*> known =
      command->get_subcommands([](const CLI::App* one) { return !one->get_name().empty(); });
  const bool unfinished = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  const std::string help = PathOf(app) + " --help";
  const std::vector<std::string> extras = app.remaining(true);
  if (!extras.empty()) {
    const std::string& word = extras.front();
    if (word.starts_with("-")) {
      // The name alone: of -pSECRET that is one letter.
      return fmt::format(
          "There is no option {}; {} lists them.",
          kolvex_tools::Shown(word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2)),
          help);
    }
    if (!known.empty()) {
      std::string names;
      for (const CLI::App* one : known) {
        names += (names.empty() ? "" : ", ") + one->get_name();
      }
      return fmt::format("{} is no subcommand; there are {}.", Quoted(word), names);
    }
    return fmt::format("There is a word too many; {} shows the usage.", help);
  }
  if (unfinished && !known.empty()) {
    return fmt::format("{} needs a subcommand; {} lists them.", command->get_name(), help);
  }
  std::string text = error.what();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return fmt::format("{}; {} shows the usage.", text, help);
}

/// Help was asked for a subcommand that there isn't.
bool IsHelpOfNothing(const CLI::App& app) {
  const std::vector<std::string> extras = app.remaining(true);
  const bool hasSubcommands =
      !Innermost(app)->get_subcommands([](const CLI::App* one) { return !one->get_name().empty(); }).empty();
  return hasSubcommands && !extras.empty() && !extras.front().starts_with("-");
}

/// "help" and "help SUBCOMMAND" are the same as --help in the same place.
std::vector<std::string> WithHelpOption(std::vector<std::string> words) {
  const auto help = std::find(words.begin(), words.end(), "help");
  const bool first = help != words.end() && std::all_of(words.begin(), help, [](const std::string& word) {
                       return word.starts_with("-");
                     });
  if (first) {
    words.erase(help);
    words.emplace_back("--help");
  }
  return words;
}

}  // namespace

int RunProgram(int argc, char** argv) {
  // A reader of our output that goes away is a failed write, not the end of the process: cameras are left
  // in order first.
  std::signal(SIGPIPE, SIG_IGN);
  StopSignal stop;
  Common common(stop);
  std::vector<std::string> words = WithHelpOption({argv + 1, argv + argc});
  // Known before anything can fail: a program that reads events gets the first failure as one, too.
  const bool json = std::find(words.begin(), words.end(), "--json") != words.end();

  if (std::find(words.begin(), words.end(), "") != words.end()) {
    return Fail(json, ExitCode::Usage,
                "A word of the command line is empty: leave it out, or give what belongs there.");
  }

  CLI::App app(
      "Sample host for the Kolvex IP capture driver: does with the library what a recording server does.",
      "kolvex-host");
  app.set_version_flag("--version", "kolvex-host " KOLVEX_VERSION_STRING);
  app.add_option("--library", common.library, "The driver library; by default beside this program or installed")
      ->type_name("PATH");
  app.add_option("--user", common.user,
                 "User name for the cameras; the password comes from KOLVEX_PASSWORD or is asked for")
      ->type_name("NAME");
  app.add_option("--credentials", common.credentials,
                 "JSON file with \"user\" and \"password\"; by default KOLVEX_USER and KOLVEX_PASSWORD")
      ->type_name("FILE");
  app.add_flag("--json", common.json, "JSON lines on standard output, for programs");
  app.add_flag("--verbose", common.verbose, "The library's debug messages on standard error");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  for (const auto add : kSubcommands) {
    add(app, common);
  }

  try {
    std::reverse(words.begin(), words.end());  // as CLI11 wants them
    app.parse(words);
  } catch (const CLI::Success& success) {
    return IsHelpOfNothing(app) ? Fail(json, ExitCode::Usage, SentenceOf(success, app)) : app.exit(success);
  } catch (const CLI::ParseError& error) {
    return Fail(json, ExitCode::Usage, SentenceOf(error, app));
  } catch (const Failure& failure) {
    return Fail(json, failure.Code(), failure.what(), failure.IsTold());
  } catch (const std::exception& error) {
    return Fail(json, ExitCode::Internal, error.what());
  }
  return 0;
}

}  // namespace kolvex_host

int main(int argc, char** argv) { return kolvex_host::EndProgram(kolvex_host::RunProgram(argc, argv)); }
