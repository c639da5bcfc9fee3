#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kolvex_test {

/// What a run of kolvex-host gave back.
struct HostResult {
  int exit = -1;  ///< -1 when a signal ended it
  std::string out;
  std::string err;
};

/// The real program in a process of its own, in a scratch folder that goes away with this object.
class HostRun {
 public:
  HostRun();
  ~HostRun();

  const std::filesystem::path& Folder() const { return folder_; }
  /// A file in the folder; gives its path.
  std::string File(const std::string& name, const std::string& text, bool forOwnerOnly = false) const;
  std::string Read(const std::filesystem::path& name) const;
  /// The calls that the fake driver was given.
  std::string DriverLog() const { return Read("driver.log"); }

  /// Starts `kolvex-host ARGUMENTS` through a shell, in the folder, with the fake driver as its library unless
  /// the arguments name another. @p before are shell commands that run first.
  void Start(const std::string& arguments, const std::string& before = "");
  /// From here on a copy of the program in the folder runs: the library keeps files beside it.
  void CopyProgram();
  const std::string& Program() const { return program_; }
  /// Waits until standard output holds @p text; false when the program ended first.
  bool WaitForOutput(const std::string& text);
  void Signal(int number) const;
  HostResult Finish();

  HostResult Run(const std::string& arguments, const std::string& before = "") {
    Start(arguments, before);
    return Finish();
  }

 private:
  std::filesystem::path folder_;
  std::string program_;
  pid_t child_ = -1;
  int out_ = -1;
  std::string output_;
};

}  // namespace kolvex_test
