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

/// A program in a process of its own, in a scratch folder that goes away with this object.
class ProgramRun {
 public:
  explicit ProgramRun(std::string program) : program_(std::move(program)) {}
  ~ProgramRun();

  std::filesystem::path Folder() const { return folder_.Path(); }
  void Write(const std::string& name, const std::string& text) const { folder_.Write(name, text); }
  std::string Read(const std::string& name) const { return folder_.Read(name); }

  /// Starts the program with @p arguments through a shell, in the folder. @p before are shell commands that run
  /// first.
  void Start(const std::string& arguments, const std::string& before = "");
  /// Waits until standard output holds @p text; false when the program ended first.
  bool WaitForOutput(const std::string& text);
  void Signal(int number) const;
  ProgramResult Finish();

  ProgramResult Run(const std::string& arguments, const std::string& before = "") {
    Start(arguments, before);
    return Finish();
  }

 private:
  bool ReadOutput();

  const TempFolder folder_;
  const std::string program_;
  pid_t child_ = -1;
  int out_ = -1;
  std::string output_;
};

}  // namespace kolvex_test
