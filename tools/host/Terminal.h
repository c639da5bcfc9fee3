#pragma once

#include <termios.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ProgramEnd.h"

namespace kolvex_host {

/// Standard input as a terminal that gives each key at once and doesn't show it; restored at the end.
///
/// Ctrl-C stays a signal. Ctrl-Z and Ctrl-\ do nothing: a program that is halted can't stop a head.
class Terminal {
 public:
  /// Throws Failure (ExitCode::Usage) when standard input is no terminal.
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// The keys that come within @p timeout; nothing at all when the terminal has gone.
  std::optional<std::string> Read(std::chrono::milliseconds timeout);

 private:
  termios before_{};
};

/// Splits what a terminal sends into keys: characters, and "left", "right", "up" and "down" for the arrows
/// (ECMA-48 cursor keys). Other sequences give nothing. A sequence may come in pieces.
class KeyReader {
 public:
  std::vector<std::string> Split(std::string_view bytes);

 private:
  enum class State { Plain, Escape, Sequence } state_ = State::Plain;
};

/// Whether a person can be asked: the program runs on a terminal, whatever its standard streams are.
bool CanAsk();
/// Asks the person on the terminal and gives the answer's line; AskSecret doesn't show what is typed. Throws Failure
/// (ExitCode::Usage) when the terminal goes away or Ctrl-C ends it.
std::string AskLine(const std::string& question, StopSignal& stop);
std::string AskSecret(const std::string& question, StopSignal& stop);

}  // namespace kolvex_host
