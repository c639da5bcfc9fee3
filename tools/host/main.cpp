#include <csignal>
#include <cstdio>
#include <exception>

#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Output.h"
#include "ProgramEnd.h"
#include "Subcommand.h"
#include "kolvex/Version.h"

namespace {

using kolvex_host::ExitCode;

constexpr kolvex_host::AddSubcommand* kSubcommands[] = {
    kolvex_host::AddQuery,
    kolvex_host::AddCapture,
    kolvex_host::AddIo,
    kolvex_host::AddPtz,
};

constexpr const char* kFooter = R"(
Exit codes:
  0  done; an end by Ctrl-C is an ordinary end
  1  the command line, or a file that it names, can't be understood
  2  the driver library can't be loaded
  3  the driver refused to open a camera or to start its stream
  4  at least one camera gave no frame
  5  a result couldn't be written
  6  something that should not happen
  7  the camera can't be reached, or didn't do what was asked
  8  the camera wants another user name or password

From an address to pictures:
  kolvex-host query 192.0.2.7 --save yard.json
  kolvex-host capture --camera-file yard.json --duration 10 --out pictures

Each subcommand has a --help with examples.)";

int Fail(const kolvex_host::Common& common, ExitCode code, const char* sentence) {
  if (common.json) {
    try {
      kolvex_host::PrintJson({{"event", "error"}, {"exit", static_cast<int>(code)}, {"message", sentence}});
    } catch (const std::exception&) {
      // Standard output has gone; standard error still tells.
    }
  }
  std::fprintf(stderr, "kolvex-host: %s\n", sentence);
  return static_cast<int>(code);
}

}  // namespace

static int Run(int argc, char** argv) {
  // A reader of our output that goes away is a failed write, not the end of the process: cameras are left
  // in order first.
  std::signal(SIGPIPE, SIG_IGN);
  kolvex_host::StopSignal stop;
  kolvex_host::Common common{.library = {}, .credentials = {}, .stop = stop};

  CLI::App app(
      "Sample host for the Kolvex IP capture driver: does with the library what a recording server does.",
      "kolvex-host");
  app.add_option("--library", common.library, "The driver library; by default beside this program or installed")
      ->type_name("PATH");
  app.add_option("--credentials", common.credentials,
                 "JSON file with \"user\" and \"password\"; by default KOLVEX_USER and KOLVEX_PASSWORD")
      ->type_name("FILE");
  app.add_flag("--json", common.json, "JSON lines on standard output, for programs");
  app.add_flag("--verbose", common.verbose, "The library's debug messages on standard error");
  app.set_version_flag("--version", KOLVEX_VERSION_STRING, "Print the version and exit");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  for (const auto add : kSubcommands) {
    add(app, common);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
  } catch (const kolvex_host::Failure& failure) {
    return Fail(common, failure.Code(), failure.what());
  } catch (const std::exception& error) {
    return Fail(common, ExitCode::Internal, error.what());
  }
  return 0;
}

int main(int argc, char** argv) { return kolvex_host::EndProgram(Run(argc, argv)); }
