#pragma once

#include <string>
#include <vector>

#include "Report.h"

namespace kolvex_host {

/// Shows on standard error how a run is going: on a terminal a block of lines that is redrawn in place, on
/// anything else a line now and then, so that a log stays readable.
class Progress {
 public:
  enum class Mode { Silent, Lines, Redraw };

  /// What fits standard error.
  static Mode FittingMode();

  explicit Progress(Mode mode) : mode_(mode) {}
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(Seconds elapsed, const std::vector<StreamReport>& streams);
  /// Takes the block off the terminal.
  void Clear();

 private:
  std::string Erase();

  const Mode mode_;
  std::size_t drawn_ = 0;  // lines of the block on the terminal
  Seconds nextLine_{0};
};

}  // namespace kolvex_host
