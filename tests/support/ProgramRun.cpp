#include "support/ProgramRun.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace kolvex_test {

ProgramRun::~ProgramRun() {
  if (child_ > 0) {
    Signal(SIGKILL);
    Finish();
  }
}

std::string ProgramRun::File(const std::string& name, const std::string& text, bool forOwnerOnly) const {
  folder_.Write(name, text);
  using std::filesystem::perms;
  std::filesystem::permissions(folder_ / name, forOwnerOnly ? perms(0600) : perms(0644));
  return folder_ / name;
}

void ProgramRun::Start(const std::string& arguments, const std::string& before) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return;
  }
  const std::string option = usual_.substr(0, usual_.find(' '));
  const std::string rest =
      option.empty() || arguments.find(option) != arguments.npos ? " " : " " + usual_ + " ";
  const std::string command = before + "\nexec " + program_ + rest + arguments + " 2>error.txt";
  output_.clear();
  child_ = fork();
  if (child_ == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    if (chdir(folder_.Path().c_str()) == 0) {
      execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    }
    _exit(127);
  }
  close(ends[1]);
  out_ = ends[0];
}

void ProgramRun::CopyProgram() {
  std::filesystem::copy_file(program_, folder_ / "program");
  program_ = folder_ / "program";
}

bool ProgramRun::WaitForOutput(const std::string& text) {
  std::array<char, 4096> buffer{};
  while (output_.find(text) == output_.npos) {
    const ssize_t count = read(out_, buffer.data(), buffer.size());
    if (count <= 0) {
      return false;
    }
    output_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return true;
}

void ProgramRun::Signal(int number) const { kill(child_, number); }

ProgramResult ProgramRun::Finish() {
  // Until the end of the output: it comes when the program ends.
  std::array<char, 4096> buffer{};
  for (ssize_t count = 0; (count = read(out_, buffer.data(), buffer.size())) > 0;) {
    output_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(out_);
  int status = 0;
  while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  child_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output_, Read("error.txt")};
}

}  // namespace kolvex_test
