#include "support/ProgramRun.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace kolvex_test {

ProgramRun::~ProgramRun() {
  if (child_ > 0) {
    Signal(SIGKILL);
    Finish();
  }
}

void ProgramRun::Start(const std::string& arguments, const std::string& before) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return;
  }
  const std::string command =
      "cd " + folder_.Path() + "\n" + before + "\nexec " + program_ + " " + arguments + " 2>error.txt";
  output_.clear();
  child_ = fork();
  if (child_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(ends[1], STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  out_ = ends[0];
}

bool ProgramRun::ReadOutput() {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(out_, buffer.data(), buffer.size());
  output_.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  return count > 0;
}

bool ProgramRun::WaitForOutput(const std::string& text) {
  while (output_.find(text) == output_.npos) {
    if (!ReadOutput()) {
      return false;
    }
  }
  return true;
}

void ProgramRun::Signal(int number) const { kill(child_, number); }

ProgramResult ProgramRun::Finish() {
  while (ReadOutput()) {  // it ends with the program
  }
  close(out_);
  int status = 0;
  waitpid(std::exchange(child_, -1), &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output_, Read("error.txt")};
}

}  // namespace kolvex_test
