#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "CameraConfig.h"

namespace kolvex_host {

/// The one camera that a subcommand works on, as the command line names it.
struct CameraChoice {
  std::string camera;  ///< ADDRESS[:PORT],KEY=VALUE,...
  std::string file;    ///< FILE[,KEY=VALUE,...]

  /// Adds the two options, of which one is needed.
  void AddTo(CLI::App& command);
  /// Throws Failure (ExitCode::Usage).
  CameraConfig Read() const;
};

}  // namespace kolvex_host
