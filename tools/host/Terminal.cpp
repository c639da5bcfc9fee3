#include "Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>

#include "Failure.h"

namespace kolvex_host {

namespace {

/// The terminal that the program runs on, for a question.
class Asked {
 public:
  explicit Asked(bool shown) : descriptor_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (tcgetattr(descriptor_, &before_) == 0 && !shown) {
      termios quiet = before_;
      quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      quiet.c_lflag |= ECHONL;
      tcsetattr(descriptor_, TCSAFLUSH, &quiet);
    }
  }
  ~Asked() {
    if (descriptor_ >= 0) {
      tcsetattr(descriptor_, TCSANOW, &before_);
      close(descriptor_);
    }
  }
  Asked(const Asked&) = delete;
  Asked& operator=(const Asked&) = delete;

  std::string Ask(const std::string& question, StopSignal& stop) const {
    std::string line;
    if (write(descriptor_, question.data(), question.size()) < 0) {
      return line;
    }
    for (;;) {
      constexpr int kTickMs = 50;
      pollfd input{descriptor_, POLLIN, 0};
      char byte = 0;
      if (stop.Wait(std::chrono::milliseconds(0), StopSignal::Second::Waits) ||
          (poll(&input, 1, kTickMs) > 0 && read(descriptor_, &byte, 1) <= 0)) {
        throw Failure(ExitCode::Usage, "The question wasn't answered.");
      }
      if (byte == '\n') {
        return line;
      }
      if (byte != 0) {
        line += byte;
      }
    }
  }

 private:
  int descriptor_;
  termios before_{};
};

}  // namespace

Terminal::Terminal() {
  if (tcgetattr(STDIN_FILENO, &before_) != 0) {
    throw Failure(ExitCode::Usage, "Driving by keys needs a terminal as standard input.");
  }
  termios keys = before_;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VSUSP] = _POSIX_VDISABLE;
  keys.c_cc[VQUIT] = _POSIX_VDISABLE;
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &keys);
}

Terminal::~Terminal() { tcsetattr(STDIN_FILENO, TCSANOW, &before_); }

std::optional<std::string> Terminal::Read(std::chrono::milliseconds timeout) {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, static_cast<int>(timeout.count())) <= 0) {
    return "";
  }
  std::array<char, 256> buffer{};
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count <= 0) {
    return std::nullopt;
  }
  return std::string(buffer.data(), static_cast<std::size_t>(count));
}

std::vector<std::string> KeyReader::Split(std::string_view bytes) {
  constexpr std::array<std::string_view, 4> kArrows = {"up", "down", "right", "left"};  // final bytes A to D
  std::vector<std::string> keys;
  for (const char byte : bytes) {
    if (byte == '\x1B') {
      state_ = State::Escape;
    } else if (state_ == State::Escape) {
      state_ = byte == '[' || byte == 'O' ? State::Sequence : State::Plain;
    } else if (state_ == State::Sequence) {
      if (byte >= '@' && byte <= '~') {  // the byte that ends a sequence
        state_ = State::Plain;
        if (byte >= 'A' && byte <= 'D') {
          keys.emplace_back(kArrows[static_cast<std::size_t>(byte - 'A')]);
        }
      }
    } else {
      keys.emplace_back(1, byte);
    }
  }
  return keys;
}

bool CanAsk() {
  const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
  // A program in the background would be halted by its question.
  const bool can = terminal >= 0 && tcgetpgrp(terminal) == getpgrp();
  if (terminal >= 0) {
    close(terminal);
  }
  return can;
}

std::string AskLine(const std::string& question, StopSignal& stop) { return Asked(true).Ask(question, stop); }
std::string AskSecret(const std::string& question, StopSignal& stop) {
  return Asked(false).Ask(question, stop);
}

}  // namespace kolvex_host
