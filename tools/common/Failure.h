#pragma once

#include <stdexcept>
#include <string>

namespace kolvex_host {

/// What the program returns to its caller. The numbers are fixed: scripts test them.
enum class ExitCode : int {
  Ok = 0,        ///< everything asked for was done; Ctrl-C is an ordinary end
  Usage = 1,     ///< the command line, or a file that it names, can't be understood
  Library = 2,   ///< the driver library can't be loaded
  Refused = 3,   ///< the driver refused to open a camera or to start its stream
  NoFrames = 4,  ///< at least one camera gave no frame
  Output = 5,    ///< a result couldn't be written
  Internal = 6,  ///< something that should not happen
  Camera = 7,    ///< the camera can't be reached, or didn't do what was asked
  Login = 8,     ///< the camera wants another user name or password
};

/// Ends the program with one clear sentence for a person and a code for a script.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), code_(code) {}
  ExitCode Code() const noexcept { return code_; }

  /// The person has read the sentence already: what is still to be ended may take a while.
  bool IsTold() const noexcept { return told_; }
  void SetTold() noexcept { told_ = true; }

 private:
  ExitCode code_;
  bool told_ = false;
};

}  // namespace kolvex_host
