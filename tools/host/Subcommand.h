#pragma once

#include <filesystem>

#include <CLI/CLI.hpp>

#include "Credentials.h"
#include "DriverSession.h"
#include "Library.h"
#include "StopSignal.h"

namespace kolvex_host {

/// What all subcommands share: the options in front of them and the process's one stop signal.
struct Common {
  std::filesystem::path library;      ///< empty: Library::DefaultPath
  std::filesystem::path credentials;  ///< empty: from the environment
  bool json = false;                  ///< JSON lines on standard output instead of text
  bool verbose = false;               ///< the library's debug messages on standard error
  StopSignal& stop;

  Library LoadLibrary() const { return Library(library.empty() ? Library::DefaultPath() : library); }
  Credentials LoadCredentials() const {
    return credentials.empty() ? Credentials::FromEnvironment() : Credentials::FromFile(credentials);
  }
  /// What becomes of a driver's debug messages: standard error or nothing.
  DriverSession::Log MakeLog() const;
};

/// Adds one subcommand with its options and help to the program. Its work is done in the subcommand's final
/// callback, which throws Failure. @p common outlives @p app and is filled when the callback runs.
///
/// A new subcommand is a new file with such a function, and a line in main.cpp.
using AddSubcommand = void(CLI::App& app, const Common& common);

AddSubcommand AddQuery;
AddSubcommand AddCapture;
AddSubcommand AddIo;
AddSubcommand AddPtz;

}  // namespace kolvex_host
