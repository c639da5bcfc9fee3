#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <utility>

#include "support/TempFolder.h"

namespace kolvex_test {

/// What a run of a program gave back.
struct ProgramResult {
  int exit = -1;  ///< -1 when a signal ended it
  std::string out;
  std::string err;
};

/// A program of ours in a process of its own, in a scratch folder that goes away with this object.
class ProgramRun {
 public:
  /// @p usual is an option with its value, for all runs whose arguments don't hold that option.
  explicit ProgramRun(std::string program, std::string usual = "")
      : program_(std::move(program)), usual_(std::move(usual)) {}
  ~ProgramRun();

  std::filesystem::path Folder() const { return folder_.Path(); }
  /// A file in the folder; gives its path.
  std::string File(const std::string& name, const std::string& text, bool forOwnerOnly = false) const;
  std::string Read(const std::string& name) const { return folder_.Read(name); }

  /// Starts the program with @p arguments through a shell, in the folder. @p before are shell commands that run
  /// first.
  void Start(const std::string& arguments, const std::string& before = "");
  /// From here on a copy of the program in the folder runs, for what keeps files beside itself.
  void CopyProgram();
  const std::string& Program() const { return program_; }
  /// Waits until standard output holds @p text; false when the program ended first.
  bool WaitForOutput(const std::string& text);
  void Signal(int number) const;
  ProgramResult Finish();

  ProgramResult Run(const std::string& arguments, const std::string& before = "") {
    Start(arguments, before);
    return Finish();
  }

 private:
  TempFolder folder_;
  std::string program_;
  const std::string usual_;
  pid_t child_ = -1;
  int out_ = -1;
  std::string output_;
};

}  // namespace kolvex_test
