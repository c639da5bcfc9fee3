#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "Capabilities.h"
#include "Credentials.h"
#include "Diagnosis.h"
#include "DriverSession.h"
#include "Failure.h"
#include "Library.h"
#include "Place.h"
#include "ProgramEnd.h"
#include "QueryRun.h"

namespace kolvex_host {

/// Waits in small steps and shows after a second what for, so that nobody looks at an empty terminal. Main thread.
class PatientWait {
 public:
  PatientWait(StopSignal& stop, std::string text);
  ~PatientWait();
  PatientWait(const PatientWait&) = delete;
  PatientWait& operator=(const PatientWait&) = delete;

  /// Takes what it shows off the terminal.
  void Clear();
  /// True when the person wants an end.
  bool operator()(std::chrono::milliseconds time);

 private:
  StopSignal& stop_;
  const std::string text_;
  const std::chrono::steady_clock::time_point start_;
  long shown_ = 0;  // seconds
  bool drawn_ = false;
};

/// What all subcommands share: the options in front of them and the process's one stop signal. Main thread.
struct Common {
  explicit Common(StopSignal& stopSignal) : stop(stopSignal) {}

  std::filesystem::path library;      ///< empty: Library::DefaultPath
  std::filesystem::path credentials;  ///< empty: from the environment
  std::string user;                   ///< instead of the one that the above say
  bool json = false;                  ///< JSON lines on standard output instead of text
  bool verbose = false;               ///< the library's debug messages on standard error
  StopSignal& stop;

  /// The library, loaded at the first call.
  std::shared_ptr<Library> LoadLibrary() const;
  /// The login for a camera. Where none was given, the camera asks for one and there is a terminal, the person is
  /// asked, once for all cameras.
  Login LoginFor(const CameraConfig& camera) const;
  /// Looks whether the camera answers and takes the login, and shows meanwhile that it does: up to 6 seconds. Nothing
  /// when all is well. Throws Failure (ExitCode::Camera) when the person wants an end.
  std::optional<Reason> WhyNoAnswer(const CameraConfig& camera, const Login& login) const;
  /// Asks the library what is at a place, and shows meanwhile that it does.
  Capabilities Query(QueryOptions options) const;
  /// A camera as the command line names it, ADDRESS[:PORT],KEY=VALUE,...: asked for what the text doesn't say.
  CameraConfig FindCamera(const std::string& text) const;
  /// What becomes of a driver's debug messages: standard error or nothing.
  DriverSession::Log MakeLog() const;

 private:
  mutable std::shared_ptr<Library> loaded_;
  mutable std::optional<Credentials> logins_;
};

/// The one camera that a subcommand works on, as the command line names it.
struct CameraChoice {
  std::string camera;  ///< ADDRESS[:PORT],KEY=VALUE,...
  std::string file;    ///< FILE[,KEY=VALUE,...]

  /// Adds the options, of which one is needed. @p positional also takes the camera as a word of its own.
  void AddTo(CLI::App& command, bool positional = false);
  /// Throws Failure.
  CameraConfig Read(const Common& common) const;
};

/// Says a failure at once, before what it ends is ended: a driver may need some seconds to let go of a camera that
/// doesn't answer. Throw what it gives.
Failure ToldNow(ExitCode code, const std::string& sentence);

/// Runs a step that asks something of a camera, with its login. A camera that doesn't answer or refuses the login is
/// said before, since the driver would try for a long time. A failure of the step by ExitCode::Camera is looked into,
/// too: what is found is said after it, and its exit code is taken.
void WithReason(const Common& common, const CameraConfig& camera,
                const std::function<void(const Login&)>& step);

/// An option that takes a time with a unit, kept within bounds; its help names them.
CLI::Option* AddDuration(CLI::App& command, const std::string& name, std::chrono::milliseconds& into,
                         const std::string& help, std::chrono::milliseconds least,
                         std::chrono::milliseconds most);

/// Adds one subcommand with its options and help to the program. Its work is done in the subcommand's final
/// callback, which throws Failure. @p common outlives @p app and is filled when the callback runs.
///
/// A new subcommand is a new file with such a function, and a line in main.cpp.
using AddSubcommand = void(CLI::App& app, const Common& common);

AddSubcommand AddQuery;
AddSubcommand AddSnapshot;
AddSubcommand AddCapture;
AddSubcommand AddIo;
AddSubcommand AddPtz;
AddSubcommand AddServe;
AddSubcommand AddView;

}  // namespace kolvex_host
